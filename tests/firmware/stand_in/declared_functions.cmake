# Checks that an archive defines every function that headers declare.
#
# Variables: NM, ARCHIVE, HEADERS: the folder of the headers.

cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${NM} -P --defined-only --extern-only ${ARCHIVE}
  OUTPUT_VARIABLE defined COMMAND_ERROR_IS_FATAL ANY)

file(GLOB_RECURSE headers ${HEADERS}/*.h)
set(count 0)
foreach(header IN LISTS headers)
  file(READ ${header} text)
  # Only declarations begin at the start of a line.
  string(REGEX MATCHALL "\n[a-z][a-z0-9_ ]*[ *]zet_[a-z0-9_]+\\(" declarations "${text}")
  foreach(declaration IN LISTS declarations)
    string(REGEX MATCH "zet_[a-z0-9_]+\\($" name "${declaration}")
    string(REPLACE "(" "" name "${name}")
    if(declaration MATCHES "typedef")
      continue()
    endif()
    math(EXPR count "${count} + 1")
    if(NOT defined MATCHES "(^|\n)${name} T")
      message(SEND_ERROR "${name} is declared in ${header}, but not defined")
    endif()
  endforeach()
endforeach()
if(count LESS 40)
  message(FATAL_ERROR "Only ${count} declarations were found in ${HEADERS}")
endif()
message(STATUS "${count} functions defined")
