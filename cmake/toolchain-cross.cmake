# SPDX-License-Identifier: MIT
# Shared part of the Debian cross toolchains (toolchain-i386.cmake, toolchain-armhf.cmake). The
# including file sets PU_CROSS_COMPILER (GNU triplet of the compiler), PU_CROSS_MULTIARCH (the
# Debian multiarch directory) and PU_CROSS_NAME (the deps directory is build/<name>-deps,
# filled by scripts/install-deps-<name>.sh).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${PU_CROSS_COMPILER}-gcc)
set(CMAKE_CXX_COMPILER ${PU_CROSS_COMPILER}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${PU_CROSS_MULTIARCH})

get_filename_component(PU_CROSS_DEPS "${CMAKE_CURRENT_LIST_DIR}/../build/${PU_CROSS_NAME}-deps"
                       ABSOLUTE)
set(PU_CROSS_DEPS "${PU_CROSS_DEPS}" CACHE PATH "Unpacked ${PU_CROSS_NAME} libraries")

# The cross compiler knows only its own C library; the unpacked packages' headers, the
# architecture-specific ones (OpenSSL's configuration, say) first.
foreach(lang C CXX)
  set(CMAKE_${lang}_STANDARD_INCLUDE_DIRECTORIES
      "${PU_CROSS_DEPS}/usr/include/${PU_CROSS_MULTIARCH};${PU_CROSS_DEPS}/usr/include")
endforeach()

# Libraries, headers and packages only from the unpacked tree.
set(CMAKE_FIND_ROOT_PATH "${PU_CROSS_DEPS}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# cJSON's CMake package names absolute /usr paths that exist only for an installed package; its
# pkg-config file relocates under the sysroot.
set(CMAKE_DISABLE_FIND_PACKAGE_cJSON TRUE)
set(ENV{PKG_CONFIG_LIBDIR} "${PU_CROSS_DEPS}/usr/lib/${PU_CROSS_MULTIARCH}/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${PU_CROSS_DEPS}")

# Programs built here run on this machine under qemu-user: they name the cross C library's
# loader, and find it and the unpacked libraries without LD_LIBRARY_PATH or qemu's -L. The
# libraries themselves carry no such path, so the packages stay clean.
set(pu_cross_libc /usr/${PU_CROSS_COMPILER}/lib)
# DT_RPATH rather than DT_RUNPATH: the loader applies an executable's RPATH to the libraries'
# own dependencies too (libm of libplatform_utils in a C program), RUNPATH only to its own.
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,--dynamic-linker=${pu_cross_libc}/${PU_CROSS_LOADER} -Wl,--disable-new-dtags")
set(CMAKE_BUILD_RPATH
    "${pu_cross_libc};${PU_CROSS_DEPS}/usr/lib/${PU_CROSS_MULTIARCH};${PU_CROSS_DEPS}/lib/${PU_CROSS_MULTIARCH}")

# Written by the deps script when binfmt_misc cannot start foreign programs by itself; tests
# that re-run their own executable (thread-safe death tests) need binfmt_misc.
if(EXISTS "${PU_CROSS_DEPS}/emulator")
  file(STRINGS "${PU_CROSS_DEPS}/emulator" PU_CROSS_EMULATOR LIMIT_COUNT 1)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${PU_CROSS_EMULATOR}")
endif()
