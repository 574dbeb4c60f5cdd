# SPDX-License-Identifier: MIT
# Third-party dependencies, all from Debian packages (scripts/install-deps.sh).
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(EXPAT REQUIRED)

# cJSON ships a CMake package on some systems and only pkg-config on others.
find_package(cJSON CONFIG QUIET)
if(cJSON_FOUND AND TARGET cjson)
  add_library(pu_cjson INTERFACE)
  target_link_libraries(pu_cjson INTERFACE cjson)
  target_include_directories(pu_cjson INTERFACE ${CJSON_INCLUDE_DIRS})
else()
  pkg_check_modules(CJSON REQUIRED IMPORTED_TARGET libcjson)
  add_library(pu_cjson INTERFACE)
  target_link_libraries(pu_cjson INTERFACE PkgConfig::CJSON)
endif()

find_path(UTHASH_INCLUDE_DIR uthash.h REQUIRED)
