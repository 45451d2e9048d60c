/** @file
 * The messages of the server core to the host.
 */
#ifndef ZET_VANTOR_SERVER_MESSAGES_H
#define ZET_VANTOR_SERVER_MESSAGES_H

#include <cstdint>

#include "zet_json_writer.h"
#include "zet_vantor_server_errors.h"

/** Sends bytes to the host and counts them. */
void zet_server_send(const void *data, uint32_t size);

/** Writes a member that is a string. */
void zet_server_write_string(zet_json_writer_t *writer, const char *key, const char *value);

/** Writes a member that is an unsigned integer. */
void zet_server_write_uint(zet_json_writer_t *writer, const char *key, uint64_t value);

/** Ends a message. */
void zet_server_end_message(zet_json_writer_t *writer);

/** Sends the waiting log lines. Lines logged by the sending itself wait for the next call. */
void zet_server_flush_log();

/** Begins the answer to a command that was executed; members may follow. */
void zet_server_begin_answer(zet_json_writer_t *writer, const char *command);

/** Answers a command that was executed and has no result. */
void zet_server_answer(const char *command);

/** Reports an error to the host with the given message. */
void zet_server_report_error(zet_server_error_t error, const char *message);

/** Reports an error to the host with its standard message. */
void zet_server_report_error(zet_server_error_t error);

#endif
