/** @file
 * Settings of a configuration that an application rarely needs. What zet_config.h says of setters holds
 * here too: called by the server's one thread, never by an interrupt; cannot fail, does not block.
 */
#ifndef ZET_CONFIG_INTERNAL_H
#define ZET_CONFIG_INTERNAL_H

#include <stdbool.h>

#include "zet_config.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sets whether every other measurement is subtracted from the one before in the sensor's buffer, false by
 * default.
 */
void zet_config_subtract_in_buffer_set(zet_config_t *config, bool enabled);

/**
 * Switches the transmitter of the whole configuration; on by default. Sub-sweeps have their own.
 *
 * The clear-channel assessment switches it during a session, between zet_sensor_read and the next
 * zet_sensor_prepare. So it must not change the size of the buffer, the layout of the frames, nor whether
 * the configuration is valid.
 */
void zet_config_enable_tx_set(zet_config_t *config, bool enabled);

#ifdef __cplusplus
}
#endif

#endif
