# Checks which symbols the backend's object exports, and which it imports.
#
# Variables: NM, OBJECT, and ASKED_FOR: a list of all operations of the neighbours that the backend may
# call, or empty to check only its exports.

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

symbols(shown --defined-only)
if(NOT shown STREQUAL expected)
  string(REPLACE ";" "\n  " shown "${shown}")
  string(REPLACE ";" "\n  " expected "${expected}")
  message(FATAL_ERROR "The object shows\n  ${shown}\nbut should show exactly\n  ${expected}")
endif()

if(ASKED_FOR)
  symbols(asked_for --undefined-only)
  foreach(name IN LISTS asked_for)
    if(NOT name IN_LIST ASKED_FOR AND NOT name MATCHES "^(error_|memset$|memcpy$|strcmp$|__aeabi_)")
      message(SEND_ERROR "The object asks for ${name}, which is no operation of its neighbours")
    endif()
  endforeach()
endif()

list(LENGTH shown count)
message(STATUS "${count} symbols shown")
