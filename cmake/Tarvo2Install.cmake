# Install rules, the CMake package, tarvo2.pc and the Debian packages.
#
# Components: `Runtime` holds what a user runs (the shared library and the
# programs and modules built on it); `Development` holds what a developer
# builds against (headers, the .so link, the static library, the CMake
# package and the pkg-config file).
include(CMakePackageConfigHelpers)

set(TARVO2_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tarvo2 CACHE STRING
    "Where the CMake package files go, relative to the prefix")
mark_as_advanced(TARVO2_CMAKE_DIR)

install(TARGETS tarvo2 tarvo2_static EXPORT Tarvo2Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          COMPONENT Runtime NAMELINK_COMPONENT Development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime)

# Public headers: the hand-written ones and those the build generates
# beside them. The test doubles under tarvo2/testing belong to the test
# suite and are not installed.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tarvo2
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development
  FILES_MATCHING PATTERN "*.h" PATTERN "testing" EXCLUDE)
if(EXISTS ${PROJECT_BINARY_DIR}/include/tarvo2)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/include/tarvo2
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development
    FILES_MATCHING PATTERN "*.h" PATTERN "testing" EXCLUDE)
endif()

# CMake package: find_package(Tarvo2) gives Tarvo2::tarvo2 (shared) and
# Tarvo2::tarvo2_static, the same names add_subdirectory users get.
install(EXPORT Tarvo2Targets NAMESPACE Tarvo2::
  DESTINATION ${TARVO2_CMAKE_DIR} COMPONENT Development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/Tarvo2Config.cmake.in
  ${PROJECT_BINARY_DIR}/Tarvo2Config.cmake
  INSTALL_DESTINATION ${TARVO2_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/Tarvo2ConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/Tarvo2Config.cmake
              ${PROJECT_BINARY_DIR}/Tarvo2ConfigVersion.cmake
  DESTINATION ${TARVO2_CMAKE_DIR} COMPONENT Development)

# pkg-config. The file is written at install time, so that its paths name
# the prefix actually installed to (cmake --install --prefix, or /usr for
# the Debian packages), and needs no ${pcfiledir} arithmetic.
set(TARVO2_PC_REQUIRES_PRIVATE "sqlite3 icu-uc")
set(TARVO2_PC_PREFIX "@TARVO2_PC_PREFIX@")  # filled in at install time
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(TARVO2_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(TARVO2_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/tarvo2.pc.in
  ${PROJECT_BINARY_DIR}/tarvo2.pc.in @ONLY)
install(CODE "
  set(TARVO2_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  set(pc \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig/tarvo2.pc\")
  if(IS_ABSOLUTE \"${CMAKE_INSTALL_LIBDIR}\")
    set(pc \"${CMAKE_INSTALL_LIBDIR}/pkgconfig/tarvo2.pc\")
  endif()
  message(STATUS \"Installing: \$ENV{DESTDIR}\${pc}\")
  configure_file(\"${PROJECT_BINARY_DIR}/tarvo2.pc.in\" \"\$ENV{DESTDIR}\${pc}\" @ONLY)
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${pc}\")"
  COMPONENT Development)

include(${CMAKE_CURRENT_LIST_DIR}/Tarvo2Package.cmake)
