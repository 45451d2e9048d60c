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
 * Called by the server's one thread, never by an interrupt: by the server, and by the sensor library in the
 * middle of its functions. It can be called before anything of the board is set up. Lines of every level
 * come; the port chooses those that it writes, and may cut long ones.
 *
 * It may wait for its output, but for a bounded time only: it delays the frames. It must not allocate, and
 * of the server it may call zet_vantor_server_log only.
 *
 * @param level   severity of the line, one of zet_log_level_t
 * @param module  tag of the module that logs, valid during the call
 * @param format  printf format of the text, without a line end, followed by its arguments; all are valid
 *                during the call only. The small C library of the firmware does not know `%llu`, `%zu` and
 *                `%f`
 */
void zet_integration_log(zet_log_level_t level, const char *module, const char *format, ...)
    ZET_PRINTF_FORMAT(3, 4);

#ifdef __cplusplus
}
#endif

#endif
