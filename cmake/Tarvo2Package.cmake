# Debian packages (cpack -G DEB in the build folder), one per component:
#   tarvo2      Runtime:     the shared library, the command-line tool and
#                            the Python module;
#   tarvo2-dev  Development: headers, the .so link, the static library, the
#                            CMake package and tarvo2.pc.
# Configure with -DCMAKE_INSTALL_PREFIX=/usr, so that the library lands in
# the multiarch folder (/usr/lib/<triplet>) that Debian uses.
set(TARVO2_PACKAGE_MAINTAINER "Tarvo2 developers <tarvo2@example.org>" CACHE STRING
    "The Maintainer field of the Debian packages")

set(CPACK_PACKAGE_NAME tarvo2)
set(CPACK_PACKAGE_VENDOR "Tarvo2")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Automation component library: settings stores behind one common interface")
set(CPACK_PACKAGE_CONTACT "${TARVO2_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL Runtime Development)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS Runtime)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${TARVO2_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Files named tarvo2-runtime_<version>_<arch>.deb and
# tarvo2-dev_<version>_<arch>.deb, so that `apt-get install ./tarvo2-*.deb`
# takes both.
execute_process(COMMAND dpkg --print-architecture
  OUTPUT_VARIABLE TARVO2_DEB_ARCH OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT TARVO2_DEB_ARCH)
  set(TARVO2_DEB_ARCH ${CMAKE_SYSTEM_PROCESSOR})
endif()
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${TARVO2_DEB_ARCH})
set(TARVO2_DEB_SUFFIX "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}_${TARVO2_DEB_ARCH}.deb")
set(CPACK_DEBIAN_RUNTIME_FILE_NAME "tarvo2-runtime_${TARVO2_DEB_SUFFIX}")
set(CPACK_DEBIAN_DEVELOPMENT_FILE_NAME "tarvo2-dev_${TARVO2_DEB_SUFFIX}")
# tarvo2-dev requires tarvo2 of the very same version.
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME tarvo2)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# Dependencies of the shared library and the programs from dpkg-shlibdeps
# (libc6, libstdc++6, libsqlite3-0, libicu72, ...); a shlibs file and the ldconfig
# trigger for the library.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# The Python module in the package is of use with Debian's python3.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS python3)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
"Tarvo2 automation component library (runtime)
 Scriptable classes that applications create and call by member name at run
 time: a multi-page text store, a persistent per-user registry store and INI
 file handling, behind one common interface, with window placement helpers.
 .
 This package holds the shared library, the tarvo2 command-line tool and
 the Python module tarvo2.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME tarvo2-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# The static library links with SQLite, ICU and threads; the CMake package
# and tarvo2.pc name SQLite and ICU as dependencies.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libsqlite3-dev, libicu-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
"Tarvo2 automation component library (development files)
 Scriptable classes that applications create and call by member name at run
 time: a multi-page text store, a persistent per-user registry store and INI
 file handling, behind one common interface, with window placement helpers.
 .
 This package holds the C++20 headers, the static library, the CMake package
 (find_package(Tarvo2)) and the pkg-config file (tarvo2.pc).")

include(CPack)
