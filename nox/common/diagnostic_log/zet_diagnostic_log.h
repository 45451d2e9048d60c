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
 * Turns the library's diagnostic log on or off. It is off at start. Its lines are passed to the log
 * operation of the registered board record, at any level of zet_nox_set_log_level. Cannot fail, does not
 * block.
 *
 * Called on the server's only thread, never from an interrupt: on before a calibration in a session that asks
 * for diagnostics, and off after every calibration, whether it was on or not.
 *
 * @param enable  true to turn it on
 */
void zet_diagnostic_log_enable(bool enable);

#ifdef __cplusplus
}
#endif

#endif
