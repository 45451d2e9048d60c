/** @file
 * The sensor library's diagnostic log.
 */
#ifndef ZET_DIAGNOSTIC_LOG_H
#define ZET_DIAGNOSTIC_LOG_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Turns the library's diagnostic log on or off. It is off at start. Its lines go through the log
 * operation of the registered board record.
 *
 * @param enable  true to turn it on
 */
void zet_diagnostic_log_enable(bool enable);

#ifdef __cplusplus
}
#endif

#endif
