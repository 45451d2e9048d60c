# Checks which symbols the backend's object file exports, and which it needs.
#
# Variables: NM, OBJECT, and ALLOWED_CALLS: a list of all functions that the backend may call, or empty to check
# only the exported symbols.

cmake_minimum_required(VERSION 3.25)

set(expected
  cpd_override_mappings
  zet_vantor_server_system_deinit
  zet_vantor_server_system_destroy_session
  zet_vantor_server_system_execute_diagnostics_test
  zet_vantor_server_system_get_sensor_name
  zet_vantor_server_system_init
  zet_vantor_server_system_is_on_demand
  zet_vantor_server_system_is_sensor_connected
  zet_vantor_server_system_k3_get_sensor_count
  zet_vantor_server_system_parse_configuration
  zet_vantor_server_system_read_data_frames
  zet_vantor_server_system_send_session_metadata)

# Runs nm and returns the symbol names, sorted, without those that a sanitizer adds.
function(symbols result)
  execute_process(COMMAND ${NM} -C -P ${ARGN} --extern-only ${OBJECT}
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX REPLACE "\n$" "" output "${output}")
  string(REPLACE "\n" ";" output "${output}")
  set(names)
  foreach(line IN LISTS output)
    string(REGEX REPLACE " [A-Za-z]( .*)?$" "" name "${line}")
    if(NOT name MATCHES "^__(odr_asan|asan|ubsan|sanitizer|gcov|stack_chk)")
      list(APPEND names "${name}")
    endif()
  endforeach()
  list(SORT names)
  set(${result} "${names}" PARENT_SCOPE)
endfunction()

symbols(exported --defined-only)
if(NOT exported STREQUAL expected)
  string(REPLACE ";" "\n  " exported "${exported}")
  string(REPLACE ";" "\n  " expected "${expected}")
  message(FATAL_ERROR "The object exports\n  ${exported}\nbut should export exactly\n  ${expected}")
endif()

if(ALLOWED_CALLS)
  symbols(needed --undefined-only)
  foreach(name IN LISTS needed)
    if(NOT name IN_LIST ALLOWED_CALLS AND NOT name MATCHES "^(error_|memset$|memcpy$|strcmp$|__aeabi_)")
      message(SEND_ERROR "The object needs ${name}, which it is not allowed to call")
    endif()
  endforeach()
endif()

list(LENGTH exported count)
message(STATUS "${count} symbols exported")
