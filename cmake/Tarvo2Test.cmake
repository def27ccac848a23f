# tarvo2_add_test(<layer>)
# Builds one test program from every tests/<layer>/*.cpp file and links it
# with the object libraries of <layer> and of the layers below it, so a
# subsystem's tests do not depend on the subsystems above it.
function(tarvo2_add_test layer)
  file(GLOB test_sources CONFIGURE_DEPENDS
       ${PROJECT_SOURCE_DIR}/tests/${layer}/*.cpp
       ${PROJECT_SOURCE_DIR}/tests/support/*.cpp)
  if(NOT test_sources)
    return()
  endif()
  set(name ${layer}_tests)
  add_executable(${name} ${test_sources})
  # The layer's include tree: the headers of the layer and those below it.
  target_include_directories(${name} PRIVATE ${TARVO2_LAYER_TREES}/${layer}
                                             ${PROJECT_SOURCE_DIR}/tests
                                             ${PROJECT_SOURCE_DIR}/tests/support)
  foreach(dep IN LISTS TARVO2_DEPS_${layer} ITEMS ${layer})
    target_link_libraries(${name} PRIVATE tarvo2_${dep})
  endforeach()
  target_link_libraries(${name} PRIVATE tarvo2_testing GTest::gtest GTest::gtest_main GTest::gmock)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                       PROPERTIES ENVIRONMENT "TARVO2_REGISTRY=:memory:")
endfunction()
