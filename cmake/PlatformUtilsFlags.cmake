# SPDX-License-Identifier: MIT
# Warning and sanitizer flags shared by every target of the project.
add_library(pu_flags INTERFACE)
target_compile_options(pu_flags INTERFACE -Wall -Wextra $<$<BOOL:${PU_WERROR}>:-Werror>)

if(PU_SANITIZE)
  set(pu_san_flags -fsanitize=${PU_SANITIZE} -fno-omit-frame-pointer)
  if(PU_SANITIZE MATCHES "undefined")
    list(APPEND pu_san_flags -fno-sanitize-recover=undefined)
  endif()
  add_compile_options(${pu_san_flags})
  add_link_options(-fsanitize=${PU_SANITIZE})
endif()

# Fuzz builds instrument the libraries for coverage too, so libFuzzer sees the branches of the
# code under test and not only those of the fuzz target.
if(PU_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Debian's hardening flags (what dpkg-buildflags gives with hardening=+all, less PIE, which
# only concerns executables): the packaging build always uses them.
if(PU_HARDEN OR PU_PACKAGING)
  add_compile_options(-fstack-protector-strong -Wformat -Werror=format-security
                      -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  add_link_options(-Wl,-z,relro -Wl,-z,now)
endif()
