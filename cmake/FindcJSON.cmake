# Finds cJSON and provides the target cJSON::cJSON. For a board, it is built from the source of the package that is
# installed on this machine.
include(FindPackageHandleStandardArgs)

if(CMAKE_CROSSCOMPILING)
  if(NOT TARGET cJSON::cJSON)
    execute_process(COMMAND ${PROJECT_SOURCE_DIR}/scripts/cjson-source
      OUTPUT_VARIABLE cJSON_SOURCE OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    add_library(cjson STATIC ${cJSON_SOURCE}/cjson/cJSON.c)
    # The server checks the nesting before it calls the parser, with the same limit (zet_json_scan_max_depth).
    target_compile_definitions(cjson PRIVATE CJSON_NESTING_LIMIT=16)
    target_compile_options(cjson PRIVATE -w -include ${CMAKE_CURRENT_LIST_DIR}/clear_cjson_node.h)
    target_include_directories(cjson SYSTEM PUBLIC ${cJSON_SOURCE})
    add_library(cJSON::cJSON ALIAS cjson)
  endif()
  find_package_handle_standard_args(cJSON REQUIRED_VARS cJSON_SOURCE)
  return()
endif()

find_path(cJSON_INCLUDE_DIR cjson/cJSON.h)
find_library(cJSON_LIBRARY cjson)
find_package_handle_standard_args(cJSON REQUIRED_VARS cJSON_LIBRARY cJSON_INCLUDE_DIR)
if(cJSON_FOUND AND NOT TARGET cJSON::cJSON)
  add_library(cJSON::cJSON UNKNOWN IMPORTED)
  set_target_properties(cJSON::cJSON PROPERTIES
    IMPORTED_LOCATION ${cJSON_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${cJSON_INCLUDE_DIR})
endif()
