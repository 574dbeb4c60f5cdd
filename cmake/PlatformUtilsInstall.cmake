# SPDX-License-Identifier: MIT
# Installation: libraries with their SONAME links, headers under include/platform_utils/,
# a pkg-config file and a CMake package with imported targets.
include(CMakePackageConfigHelpers)

set(PU_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/platform_utils)
set(PU_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/platform_utils)

# A program built against a prefix outside the system paths names only libplatform_utils when it
# is linked with --as-needed, and its own run path does not serve the libraries it loads: the
# installed libplatform_utils finds libplatform_os beside itself.
if(BUILD_SHARED_LIBS AND NOT PU_PACKAGING)
  set_property(TARGET platform_utils platform_sim PROPERTY INSTALL_RPATH "$ORIGIN")
endif()

# libplatform_sim: the simulation controls, for the tests of applications; nothing else links it.
install(TARGETS platform_utils platform_os platform_sim EXPORT platform_utils_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  INCLUDES DESTINATION ${PU_INSTALL_INCLUDEDIR})

file(GLOB pu_public_headers ${PROJECT_SOURCE_DIR}/include/*.h)
install(FILES ${pu_public_headers}
        ${PROJECT_SOURCE_DIR}/platform/include/platform_os.h
        ${PROJECT_SOURCE_DIR}/platform/include/platform_sim.h
        ${PROJECT_BINARY_DIR}/include/pu_version.h
  DESTINATION ${PU_INSTALL_INCLUDEDIR} COMPONENT dev)

install(EXPORT platform_utils_targets NAMESPACE platform_utils::
  FILE platform_utils-targets.cmake DESTINATION ${PU_INSTALL_CMAKEDIR} COMPONENT dev)

if(BUILD_SHARED_LIBS)
  set(PU_STATIC_LIBS OFF)
else()
  set(PU_STATIC_LIBS ON)
endif()
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/platform_utils-config.cmake.in
  ${PROJECT_BINARY_DIR}/platform_utils-config.cmake INSTALL_DESTINATION ${PU_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/platform_utils-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/platform_utils-config.cmake
              ${PROJECT_BINARY_DIR}/platform_utils-config-version.cmake
  DESTINATION ${PU_INSTALL_CMAKEDIR} COMPONENT dev)

# The pkg-config file finds its prefix relative to itself, so the tree can be installed anywhere
# (cmake --install --prefix) and moved afterwards.
file(RELATIVE_PATH PU_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" PU_PC_TO_PREFIX "${PU_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/platform_utils.pc.in
  ${PROJECT_BINARY_DIR}/platform_utils.pc @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/cmake/platform_sim.pc.in
  ${PROJECT_BINARY_DIR}/platform_sim.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/platform_utils.pc ${PROJECT_BINARY_DIR}/platform_sim.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
