# Checks that programs need exactly the shared libraries that a document lists for them, and that the licences of the
# libraries allow the programs to have any licence.
#
# Variables: DOCUMENT, PROGRAMS.

cmake_minimum_required(VERSION 3.25)

# A row: library, programs, purpose, package, licence.
file(STRINGS ${DOCUMENT} rows REGEX "^[|] `lib[^`]+[.]so")
foreach(row IN LISTS rows)
  if(NOT row MATCHES "^[|] `([^`]+)` [|] ([^|]+) [|] [^|]+ [|] [^|]+ [|] ([^|]+) [|]$")
    message(FATAL_ERROR "${DOCUMENT}: this row does not have five cells: ${row}")
  endif()
  set(library ${CMAKE_MATCH_1})
  set(users_of_${library} ${CMAKE_MATCH_2})
  set(licence ${CMAKE_MATCH_3})
  list(APPEND documented ${library})
  if(licence MATCHES "(^|[^L])GPL" AND NOT licence MATCHES "Exception")
    message(SEND_ERROR "${library} must not be linked: its licence is ${licence}.")
  endif()
endforeach()

foreach(program IN LISTS PROGRAMS)
  cmake_path(GET program FILENAME name)
  file(GET_RUNTIME_DEPENDENCIES EXECUTABLES ${program} PRE_EXCLUDE_REGEXES "^ld-linux"
    RESOLVED_DEPENDENCIES_VAR found UNRESOLVED_DEPENDENCIES_VAR not_found)
  list(TRANSFORM found REPLACE "^.*/" "")
  set(needed ${found} ${not_found})
  foreach(library IN LISTS needed)
    if(NOT users_of_${library} MATCHES "`${name}`")
      message(SEND_ERROR "${name} needs ${library}, which ${DOCUMENT} does not list for it.")
    endif()
  endforeach()
  foreach(library IN LISTS documented)
    if(users_of_${library} MATCHES "`${name}`" AND NOT library IN_LIST needed)
      message(SEND_ERROR "${name} does not need ${library}, which ${DOCUMENT} lists for it.")
    endif()
  endforeach()
endforeach()
