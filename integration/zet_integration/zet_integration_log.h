/** @file
 * The board's log, which the port implements.
 */
#ifndef ZET_INTEGRATION_LOG_H
#define ZET_INTEGRATION_LOG_H

#include "zet_definitions_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define ZET_PRINTF_FORMAT(format_index, arguments_index)                                                     \
    __attribute__((format(printf, format_index, arguments_index)))
#else
#define ZET_PRINTF_FORMAT(format_index, arguments_index)
#endif

/**
 * Writes one log line. Cannot fail: a line that cannot be written is lost.
 *
 * Called on the server's only thread, never from an interrupt: by the server, and by the sensor library from
 * inside its functions. It can be called before any part of the board is set up. It is called for lines of
 * every level; the port chooses which lines it writes, and may cut long ones.
 *
 * It may wait for its output, but only for a bounded time, because that delays the frames. It must not
 * allocate, and the only function of the server that it may call is zet_vantor_server_log.
 *
 * @param level   severity of the line, one of zet_log_level_t
 * @param module  tag of the module that logs, valid during the call
 * @param format  printf format of the text, without a line end, followed by its arguments; all are valid
 *                during the call only. The firmware does not support `%llu`, and writes the shortest text
 *                of a floating-point number whatever its precision
 */
void zet_integration_log(zet_log_level_t level, const char *module, const char *format, ...)
    ZET_PRINTF_FORMAT(3, 4);

#ifdef __cplusplus
}
#endif

#endif
