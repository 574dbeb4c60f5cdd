# SPDX-License-Identifier: MIT
# pu_version.h, generated from the project version into the build tree and installed with the
# other public headers.
configure_file(${PROJECT_SOURCE_DIR}/include/pu_version.h.in
               ${PROJECT_BINARY_DIR}/include/pu_version.h @ONLY)
target_include_directories(platform_utils PUBLIC $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>)
