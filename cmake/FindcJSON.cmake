# Finds cJSON and offers it as the target cJSON::cJSON.
find_path(cJSON_INCLUDE_DIR cjson/cJSON.h)
find_library(cJSON_LIBRARY cjson)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(cJSON REQUIRED_VARS cJSON_LIBRARY cJSON_INCLUDE_DIR)
if(cJSON_FOUND AND NOT TARGET cJSON::cJSON)
  add_library(cJSON::cJSON UNKNOWN IMPORTED)
  set_target_properties(cJSON::cJSON PROPERTIES
    IMPORTED_LOCATION ${cJSON_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${cJSON_INCLUDE_DIR})
endif()
