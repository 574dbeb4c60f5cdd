# Debian packages: `cpack -G DEB` in a build directory makes the runtime package (the two shared
# libraries) and the development package (headers, pkg-config file, CMake package, .so links).
set(CPACK_PACKAGE_NAME platform-utils)
set(CPACK_PACKAGE_VENDOR "platform_utils developers")
set(CPACK_PACKAGE_CONTACT "platform_utils developers <platform-utils@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Utility library for embedded device applications, with its Linux platform layer")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libplatform-utils0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "Runtime: the two shared libraries. Containers, status store, event bus, timers, plans, strings, URL, JSON, sockets,\n crypto wrappers and XML, with the Linux platform layer they run on.\n")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libplatform-utils-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# The JSON header includes cJSON's, so building against us needs cJSON's headers too.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libplatform-utils0 (= ${PROJECT_VERSION}), libcjson-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION
    "Development files: headers, pkg-config file and CMake package for libplatform-utils0.\n")

include(CPack)
