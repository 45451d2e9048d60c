/** @file
 * The board's log.
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
 * Writes one log line. Must not allocate, and of the server may call zet_vantor_server_log only.
 *
 * @param level   severity of the line
 * @param module  tag of the module that logs
 * @param format  printf format of the text, without a line end, followed by its arguments
 */
void zet_integration_log(zet_log_level_t level, const char *module, const char *format, ...)
    ZET_PRINTF_FORMAT(3, 4);

#ifdef __cplusplus
}
#endif

#endif
