/** @file
 * Settings of a configuration that an application rarely needs.
 */
#ifndef ZET_CONFIG_INTERNAL_H
#define ZET_CONFIG_INTERNAL_H

#include <stdbool.h>

#include "zet_config.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Sets whether every other measurement is subtracted from the one before in the sensor's buffer. */
void zet_config_subtract_in_buffer_set(zet_config_t *config, bool enabled);

/** Switches the transmitter of the whole configuration; on by default. Sub-sweeps have their own. */
void zet_config_enable_tx_set(zet_config_t *config, bool enabled);

#ifdef __cplusplus
}
#endif

#endif
