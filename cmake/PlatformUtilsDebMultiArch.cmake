# SPDX-License-Identifier: MIT
# Run by cpack after it has made the packages: this cpack writes no Multi-Arch field, so each
# package is unpacked, given "Multi-Arch: same" (its files are all under the multiarch library
# directory or identical on every architecture, so two architectures install side by side) and
# rebuilt with dpkg-deb.
foreach(deb IN LISTS CPACK_PACKAGE_FILES)
  if(NOT deb MATCHES "\\.deb$")
    continue()
  endif()
  set(tree "${deb}.tree")
  file(REMOVE_RECURSE "${tree}")
  execute_process(COMMAND dpkg-deb -R "${deb}" "${tree}" COMMAND_ERROR_IS_FATAL ANY)
  file(READ "${tree}/DEBIAN/control" control)
  if(NOT control MATCHES "\nMulti-Arch:")
    string(REGEX REPLACE "(^|\n)(Architecture: [^\n]*\n)" "\\1\\2Multi-Arch: same\n" control
                         "${control}")
    file(WRITE "${tree}/DEBIAN/control" "${control}")
    execute_process(COMMAND dpkg-deb --root-owner-group -Zxz -b "${tree}" "${deb}"
                    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  endif()
  file(REMOVE_RECURSE "${tree}")
endforeach()
