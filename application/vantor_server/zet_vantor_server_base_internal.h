/** @file
 * JSON output for the backend.
 */
#ifndef ZET_VANTOR_SERVER_BASE_INTERNAL_H
#define ZET_VANTOR_SERVER_BASE_INTERNAL_H

#include <stdbool.h>

#include <cjson/cJSON.h>

#include "zet_vantor_server_base.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sends a document to the host as one line of compact JSON, ended by a line feed.
 *
 * Allocates nothing. A number is printed as the shortest text that reads back as the same number; one that is
 * not finite is printed as null.
 *
 * @param write  sends the text, in pieces
 * @param json   the document, still owned by the caller
 * @return false when an argument is null or the document is nested too deep; nothing has been sent then
 */
bool zet_vantor_server_write_json(write_data_function_t *write, cJSON *json);

#ifdef __cplusplus
}
#endif

#endif
