/** @file
 * Every error that can be reported to the host: its stable code and its message.
 *
 * The codes of the backend's errors are the names of the constants in zet_vantor_server_error_messages.h
 * without "error_" and "_str".
 */
#ifndef ZET_VANTOR_SERVER_ERRORS_H
#define ZET_VANTOR_SERVER_ERRORS_H

#include <cstdint>

/** The errors: first those that the server core detects, then those that the backend reports. */
enum zet_server_error_t : uint8_t
{
    ZET_SERVER_ERROR_LINE_TOO_LONG,
    ZET_SERVER_ERROR_BAD_JSON,
    ZET_SERVER_ERROR_TRAILING_TEXT,
    ZET_SERVER_ERROR_NESTING_TOO_DEEP,
    ZET_SERVER_ERROR_TOO_MANY_VALUES,
    ZET_SERVER_ERROR_BAD_COMMAND,
    ZET_SERVER_ERROR_UNKNOWN_COMMAND,
    ZET_SERVER_ERROR_BAD_ARGUMENT,
    ZET_SERVER_ERROR_WRONG_STATE,
    ZET_SERVER_ERROR_BAUDRATE_FIXED,
    ZET_SERVER_ERROR_CONFIGURATION_REFUSED,
    ZET_SERVER_ERROR_METADATA_FAILED,

    ZET_SERVER_ERROR_JSON_PARSE,
    ZET_SERVER_ERROR_SEND_DATA,
    ZET_SERVER_ERROR_MISSING_CONFIG,
    ZET_SERVER_ERROR_BAD_CONFIG,
    ZET_SERVER_ERROR_CONFIG_FAULTY_UPDATE_RATE,
    ZET_SERVER_ERROR_CONFIG_FAULTY_LOG_SETTINGS,
    ZET_SERVER_ERROR_CONFIG_GROUPS,
    ZET_SERVER_ERROR_CONFIG_GROUP_ITEMS,
    ZET_SERVER_ERROR_CONFIG_SENSOR_ID,
    ZET_SERVER_ERROR_CONFIG_CALIBRATION_DATA,
    ZET_SERVER_ERROR_CONFIG_CALIBRATION_LIST,
    ZET_SERVER_ERROR_CONFIG_MAX_UPDATE_RATE_WITH_FRAME_RATE,
    ZET_SERVER_ERROR_CONFIG_MULTIPLE_GROUPS_WITH_FRAME_RATE,
    ZET_SERVER_ERROR_DOUBLE_SUBSWEEP_CONFIG,
    ZET_SERVER_ERROR_TOO_MANY_SUBSWEEPS,
    ZET_SERVER_ERROR_INVALID_INTER_FRAME_IDLE_STATE,
    ZET_SERVER_ERROR_INVALID_INTER_SWEEP_IDLE_STATE,
    ZET_SERVER_ERROR_INVALID_PRF,
    ZET_SERVER_ERROR_NOX_CREATE_SENSOR,
    ZET_SERVER_ERROR_NOX_GET_BUFFER_SIZE,
    ZET_SERVER_ERROR_NOX_CREATE_PROCESSING,
    ZET_SERVER_ERROR_NOX_SENSOR_CALIBRATION,
    ZET_SERVER_ERROR_NOX_DATA,
    ZET_SERVER_ERROR_OUT_OF_MEMORY,

    ZET_SERVER_ERROR_COUNT, /**< number of errors; not an error itself */
};

/** Returns the code of an error. */
const char *zet_server_error_code(zet_server_error_t error);

/** Returns the message of an error: what is wrong and what to change. */
const char *zet_server_error_message(zet_server_error_t error);

/**
 * Finds the error whose message the backend stored.
 *
 * @param message    the pointer that the backend stored; null when it stored none
 * @param otherwise  the error to return when there is no message
 */
zet_server_error_t zet_server_error_of_backend(const char *message, zet_server_error_t otherwise);

#endif
