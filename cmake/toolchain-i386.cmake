# 32-bit x86 build on an x86_64 Debian host: the multilib gcc with -m32, linking the i386
# libraries that scripts/install-deps-i386.sh unpacks under build/i386-deps.
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -m32)
endforeach()
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)

get_filename_component(PU_I386_DEPS "${CMAKE_CURRENT_LIST_DIR}/../build/i386-deps" ABSOLUTE)
set(PU_I386_DEPS "${PU_I386_DEPS}" CACHE PATH "Unpacked i386 libraries")

# Architecture-specific headers of the unpacked libraries (OpenSSL's configuration, say) sit in
# the multiarch include directory, which the host compiler only knows under /usr.
foreach(lang C CXX)
  set(CMAKE_${lang}_STANDARD_INCLUDE_DIRECTORIES "${PU_I386_DEPS}/usr/include/i386-linux-gnu")
endforeach()

# Libraries and packages only from the unpacked tree; headers from there first, then the host's
# architecture-independent ones (uthash, the common OpenSSL headers).
set(CMAKE_FIND_ROOT_PATH "${PU_I386_DEPS};/")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu)

# cJSON's CMake package names absolute /usr paths that exist only for an installed package; its
# pkg-config file relocates under the sysroot.
set(CMAKE_DISABLE_FIND_PACKAGE_cJSON TRUE)
set(ENV{PKG_CONFIG_LIBDIR} "${PU_I386_DEPS}/usr/lib/i386-linux-gnu/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${PU_I386_DEPS}")

# Tests run from the build tree find the unpacked runtime libraries without LD_LIBRARY_PATH.
set(CMAKE_BUILD_RPATH "${PU_I386_DEPS}/usr/lib/i386-linux-gnu;${PU_I386_DEPS}/lib/i386-linux-gnu")

# Written by scripts/install-deps-i386.sh when the kernel cannot run i386 programs itself.
if(EXISTS "${PU_I386_DEPS}/emulator")
  file(STRINGS "${PU_I386_DEPS}/emulator" PU_I386_EMULATOR LIMIT_COUNT 1)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${PU_I386_EMULATOR}")
endif()
