/** @file
 * Settings of a configuration that an application rarely needs. The rules for setters in zet_config.h
 * apply here too: called on the server's only thread, never from an interrupt; cannot fail, does not block.
 */
#ifndef ZET_CONFIG_INTERNAL_H
#define ZET_CONFIG_INTERNAL_H

#include <stdbool.h>

#include "zet_config.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sets whether every other measurement is subtracted from the previous one in the sensor's buffer, false by
 * default.
 */
void zet_config_subtract_in_buffer_set(zet_config_t *config, bool enabled);

/**
 * Switches the transmitter for the complete configuration; on by default. Each sub-sweep has its own switch
 * too.
 *
 * The clear-channel assessment switches it during a session, between zet_sensor_read and the next
 * zet_sensor_prepare. So it must not change the size of the buffer, the layout of the frames, or whether the
 * configuration is valid.
 */
void zet_config_enable_tx_set(zet_config_t *config, bool enabled);

#ifdef __cplusplus
}
#endif

#endif
