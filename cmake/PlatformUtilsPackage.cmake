# SPDX-License-Identifier: MIT
# Debian packages: `cpack -G DEB` in a build directory configured with PU_PACKAGING=ON (the
# `deb` preset) makes the runtime package (the two shared libraries) and the development package
# (headers, pkg-config file, CMake package, .so links, documentation). scripts/check-packages.sh
# builds, lints and installs them.
set(PU_DEB_MAINTAINER "platform_utils developers <maintainers@platform-utils.example.org>"
    CACHE STRING "Maintainer field and changelog signature of the Debian packages")
set(PU_DEB_RELEASE 1 CACHE STRING "Debian revision of the packages")
set(PU_DEB_VERSION ${PROJECT_VERSION}-${PU_DEB_RELEASE})
set(pu_deb_runtime libplatform-utils0)
set(pu_deb_dev libplatform-utils-dev)

set(CPACK_PACKAGE_NAME platform-utils)
set(CPACK_PACKAGE_VENDOR "platform_utils developers")
set(CPACK_PACKAGE_CONTACT "${PU_DEB_MAINTAINER}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${PU_DEB_RELEASE})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

# The architecture of the code we built, not of the machine that built it (an i386 or armhf
# build on amd64 must say i386 or armhf).
if(CMAKE_LIBRARY_ARCHITECTURE)
  execute_process(COMMAND dpkg-architecture -qDEB_HOST_ARCH -t${CMAKE_LIBRARY_ARCHITECTURE}
                  OUTPUT_VARIABLE pu_deb_arch OUTPUT_STRIP_TRAILING_WHITESPACE
                  ERROR_QUIET RESULT_VARIABLE pu_deb_arch_result)
  if(pu_deb_arch_result EQUAL 0 AND pu_deb_arch)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${pu_deb_arch})
  endif()
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://platform-utils.example.org/")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${pu_deb_runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "utility library for embedded Linux device applications
Containers, a named status store, an event bus and asynchronous calls,
timers and calendar plans, string, URL, JSON, socket, crypto and XML
helpers, behind a plain C interface, with the Linux platform layer
(semaphores, message queues, tasks, thread pools, logging) they run on.
.
This package holds the shared libraries libplatform_utils and
libplatform_os, and libplatform_sim, which drives their clock and
heartbeats by hand for the deterministic tests of applications.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${pu_deb_dev})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# The JSON header includes cJSON's, so building against us needs cJSON's headers too.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${pu_deb_runtime} (= ${PU_DEB_VERSION}), libcjson-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "utility library for embedded Linux devices - development files
Containers, a named status store, an event bus and asynchronous calls,
timers and calendar plans, string, URL, JSON, socket, crypto and XML
helpers, behind a plain C interface, with the Linux platform layer
they run on.
.
This package holds the C headers, the pkg-config file, the CMake
package and the documentation needed to build programs against
libplatform-utils0.")

if(PU_PACKAGING AND BUILD_SHARED_LIBS)
  # Dependencies of the libraries from dpkg-shlibdeps, run when cpack starts (cpack's own
  # shlibdeps option would also write ldconfig calls into postinst and postrm, which the
  # trigger replaces); ours for dependents from the shlibs and symbols files. Cross builds
  # cannot ask dpkg-shlibdeps about the host's libraries, so they name them by hand.
  if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS
        "libc6, libgcc-s1, libstdc++6, libssl3, libexpat1, libcjson1")
  else()
    set(PU_DEB_SHLIBDEPS_LIBRARIES
        "${PROJECT_BINARY_DIR}/platform/libplatform_os.so.0;${PROJECT_BINARY_DIR}/src/libplatform_utils.so.0;${PROJECT_BINARY_DIR}/platform/libplatform_sim.so.0")
    configure_file(${PROJECT_SOURCE_DIR}/cmake/PlatformUtilsCPackOptions.cmake.in
                   ${PROJECT_BINARY_DIR}/PlatformUtilsCPackOptions.cmake @ONLY)
    set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/PlatformUtilsCPackOptions.cmake)
  endif()
  set(pu_deb_control ${PROJECT_BINARY_DIR}/debian)
  set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/PlatformUtilsDebMultiArch.cmake)
  add_custom_target(pu_deb_control ALL
    COMMAND ${CMAKE_COMMAND} -DNM=${CMAKE_NM} -DOUT_DIR=${pu_deb_control}
            -DPACKAGE=${pu_deb_runtime} -DDEV_PACKAGE=${pu_deb_dev} -DVERSION=${PROJECT_VERSION}
            "-DLIBRARIES=$<TARGET_FILE:platform_os>;$<TARGET_FILE:platform_utils>;$<TARGET_FILE:platform_sim>"
            -P ${PROJECT_SOURCE_DIR}/cmake/PlatformUtilsDebControl.cmake
    DEPENDS platform_utils platform_os platform_sim VERBATIM)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
      "${pu_deb_control}/shlibs;${pu_deb_control}/symbols;${pu_deb_control}/triggers")

  # Each package's copyright and changelog (compressed without a time stamp).
  configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in
                 ${pu_deb_control}/changelog.Debian @ONLY)
  execute_process(COMMAND gzip -9nf ${pu_deb_control}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
  foreach(component runtime dev)
    set(package ${pu_deb_${component}})
    install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright
                  ${pu_deb_control}/changelog.Debian.gz
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})
    # Lintian overrides, each with its reason.
    install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/${package}.lintian-overrides
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides
            RENAME ${package} COMPONENT ${component})
  endforeach()
  install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/NEWS
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${pu_deb_dev} COMPONENT dev)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${pu_deb_dev}/docs COMPONENT dev)
endif()

include(CPack)
