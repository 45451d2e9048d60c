/** @file
 * The `k330` sensor library as a whole: board registration, log level, buffer sizes.
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
 * Installs the board record. To be called before anything else of the library.
 *
 * @param hal  the board record; must stay valid afterwards
 * @return false when the record is null or lacks a required operation
 */
bool zet_nox_hal_register(const zet_hal_k330_t *hal);

/**
 * Sets the threshold of the library's own log lines.
 *
 * @param level  the least severe level that is still logged
 */
void zet_nox_set_log_level(zet_log_level_t level);

/**
 * Tells how large a work buffer a configuration needs for calibration, prepare and read.
 *
 * Judges the whole configuration: every value is held against its range.
 *
 * @param config       the configuration
 * @param buffer_size  receives the size in bytes; unchanged on failure
 * @return false when the configuration is null or not valid (the reason is logged)
 */
bool zet_nox_get_buffer_size(const zet_config_t *config, uint32_t *buffer_size);

#ifdef __cplusplus
}
#endif

#endif
