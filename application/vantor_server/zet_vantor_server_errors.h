/** @file
 * Every error that the host can be told: its stable code and its message.
 *
 * The codes of the backend's errors are the names of the constants in zet_vantor_server_error_messages.h
 * without "error_" and "_str".
 */
#ifndef ZET_VANTOR_SERVER_ERRORS_H
#define ZET_VANTOR_SERVER_ERRORS_H

#include <cstdint>

/** The errors: those that the server core finds, then those that the backend reports. */
enum server_error_t : uint8_t
{
    SERVER_ERROR_LINE_TOO_LONG,
    SERVER_ERROR_BAD_JSON,
    SERVER_ERROR_TRAILING_TEXT,
    SERVER_ERROR_NESTING_TOO_DEEP,
    SERVER_ERROR_TOO_MANY_VALUES,
    SERVER_ERROR_BAD_COMMAND,
    SERVER_ERROR_UNKNOWN_COMMAND,
    SERVER_ERROR_BAD_ARGUMENT,
    SERVER_ERROR_WRONG_STATE,
    SERVER_ERROR_BAUDRATE_FIXED,
    SERVER_ERROR_CONFIGURATION_REFUSED,
    SERVER_ERROR_METADATA_FAILED,

    SERVER_ERROR_JSON_PARSE,
    SERVER_ERROR_SEND_DATA,
    SERVER_ERROR_MISSING_CONFIG,
    SERVER_ERROR_BAD_CONFIG,
    SERVER_ERROR_CONFIG_FAULTY_UPDATE_RATE,
    SERVER_ERROR_CONFIG_FAULTY_LOG_SETTINGS,
    SERVER_ERROR_CONFIG_GROUPS,
    SERVER_ERROR_CONFIG_GROUP_ITEMS,
    SERVER_ERROR_CONFIG_SENSOR_ID,
    SERVER_ERROR_CONFIG_CALIBRATION_DATA,
    SERVER_ERROR_CONFIG_CALIBRATION_LIST,
    SERVER_ERROR_CONFIG_MAX_UPDATE_RATE_WITH_FRAME_RATE,
    SERVER_ERROR_CONFIG_MULTIPLE_GROUPS_WITH_FRAME_RATE,
    SERVER_ERROR_DOUBLE_SUBSWEEP_CONFIG,
    SERVER_ERROR_TOO_MANY_SUBSWEEPS,
    SERVER_ERROR_INVALID_INTER_FRAME_IDLE_STATE,
    SERVER_ERROR_INVALID_INTER_SWEEP_IDLE_STATE,
    SERVER_ERROR_INVALID_PRF,
    SERVER_ERROR_NOX_CREATE_SENSOR,
    SERVER_ERROR_NOX_GET_BUFFER_SIZE,
    SERVER_ERROR_NOX_CREATE_PROCESSING,
    SERVER_ERROR_NOX_SENSOR_CALIBRATION,
    SERVER_ERROR_NOX_DATA,
    SERVER_ERROR_OUT_OF_MEMORY,

    SERVER_ERROR_COUNT, ///< number of errors; not an error itself
};

/** The code of an error. */
const char *server_error_code(server_error_t error);

/** The message of an error: what to change. */
const char *server_error_message(server_error_t error);

/**
 * Finds the error whose message the backend stored.
 *
 * @param message    the pointer that the backend stored; null when it stored none
 * @param otherwise  the error when there is no message
 */
server_error_t server_error_of_backend(const char *message, server_error_t otherwise);

#endif
