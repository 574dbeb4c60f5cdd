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
