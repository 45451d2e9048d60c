/** @file
 * The complete `k330` sensor library: board registration, log level, buffer sizes.
 *
 * These rules apply to every function of the library, in all headers of `nox/`:
 *
 * - All functions are called on the server's only thread, never from an interrupt, and none while another one
 *   runs. The library calls the board only from inside them.
 * - No function waits for the work of a sensor. It returns after its transfers and calculations; the server
 *   waits, with zet_hal_integration_wait_for_sensor_interrupt.
 * - All memory comes from `mem_alloc` of the board record. A function that creates something returns null
 *   when memory is exhausted. The firmware has no `malloc` and runs no static constructors.
 * - Handles of configurations, sensors and processings belong to the caller until it destroys them. It
 *   destroys each handle once, and does not use it afterwards.
 * - Log lines are passed to `log` of the board record.
 * - A failure is reported by the result, and its reason is logged. The server does not retry: it ends
 *   the session with an error, destroys all handles and switches the sensors off.
 */
#ifndef ZET_NOX_K330_H
#define ZET_NOX_K330_H

#include <stdbool.h>
#include <stdint.h>

#include "zet_config.h"
#include "zet_definitions_common.h"
#include "zet_hal_definitions_k330.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Registers the board record. Called whenever the server starts, before any other function of the library,
 * with all sensors off and no existing handle.
 *
 * @param hal  the board record; unchanged and valid for the lifetime of the program
 * @return false when the record is null or lacks a required operation; the server does not start then
 */
bool zet_nox_hal_register(const zet_hal_k330_t *hal);

/**
 * Sets the threshold of the library's own log lines. Cannot fail. Called after the registration, and for
 * every configuration that sets a level; the level stays until it is set again.
 *
 * @param level  the least severe level that is still logged, one of zet_log_level_t
 */
void zet_nox_set_log_level(zet_log_level_t level);

/**
 * Returns how large a work buffer a configuration needs for calibration, prepare and read.
 *
 * Checks the complete configuration: every value against its range, and the values against each other. Needs
 * no sensor and transfers nothing.
 *
 * The server allocates one buffer of this size for each configuration, aligned for any object, and keeps it
 * to the end of the session. The library may use it during the calls that it is passed to; the server does
 * not change its contents between them.
 *
 * @param config       the configuration
 * @param buffer_size  receives the size in bytes; unchanged on failure
 * @return false when the configuration is null or not valid
 */
bool zet_nox_get_buffer_size(const zet_config_t *config, uint32_t *buffer_size);

#ifdef __cplusplus
}
#endif

#endif
