# SPDX-License-Identifier: MIT
# Script mode, run after the libraries are linked: writes the control files of the runtime
# package that let packages built against us compute their dependencies (shlibs, symbols) and
# the ldconfig trigger. Every exported symbol is listed with the current version; once a
# release has shipped, the file must keep each symbol's first version.
# Variables: NM, OUT_DIR, PACKAGE, DEV_PACKAGE, VERSION, LIBRARIES (list of paths).
file(MAKE_DIRECTORY "${OUT_DIR}")
set(shlibs "")
set(symbols "")
foreach(library IN LISTS LIBRARIES)
  get_filename_component(file_name "${library}" NAME)
  string(REGEX REPLACE "\\.so\\..*$" "" base "${file_name}")
  string(APPEND shlibs "${base} 0 ${PACKAGE} (>= ${VERSION})\n")
  string(APPEND symbols "${base}.so.0 ${PACKAGE} #MINVER#\n"
                        "* Build-Depends-Package: ${DEV_PACKAGE}\n")
  execute_process(COMMAND "${NM}" -D --defined-only "${library}"
                  OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "\n" ";" lines "${listing}")
  set(names "")
  foreach(line IN LISTS lines)
    if(line MATCHES "^[0-9a-fA-F]+ [TDBRVWiu] ([A-Za-z_][A-Za-z0-9_]*)")
      set(name "${CMAKE_MATCH_1}")
      if(NOT name MATCHES "^(_init|_fini|_edata|_end|__bss_start)$")
        list(APPEND names "${name}")
      endif()
    endif()
  endforeach()
  list(SORT names)
  list(REMOVE_DUPLICATES names)
  foreach(name IN LISTS names)
    string(APPEND symbols " ${name}@Base ${VERSION}\n")
  endforeach()
endforeach()
file(WRITE "${OUT_DIR}/shlibs" "${shlibs}")
file(WRITE "${OUT_DIR}/symbols" "${symbols}")
file(WRITE "${OUT_DIR}/triggers" "activate-noawait ldconfig\n")
