# Checks that every symbol that a library exports begins with zet_, to avoid conflicts with other symbols of a
# program.
#
# Variables: NM, LIBRARY.

cmake_minimum_required(VERSION 3.25)

# The interfaces of the backend fix these names.
set(others
  add_json_[a-z0-9_]+
  convert_hexstr2uint
  convert_uint2hexstr
  cpd_override_mappings
  error_[a-z0-9_]+
  get_json_[a-z]+_value
  is_json_node
  json_validate)

execute_process(COMMAND ${NM} -C -P --defined-only --extern-only ${LIBRARY} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+ [TDBRV] " symbols "${output}")
list(JOIN others "|" others)
set(count 0)
foreach(symbol IN LISTS symbols)
  # Symbols that begin with __ come from the compiler, and copies of templates from the standard library.
  if(NOT symbol MATCHES "^(zet_|__|std::|(${others})[ (])")
    message(SEND_ERROR "${symbol}does not begin with zet_")
  endif()
  math(EXPR count "${count} + 1")
endforeach()
if(count EQUAL 0)
  message(FATAL_ERROR "${LIBRARY} exports no symbols")
endif()
