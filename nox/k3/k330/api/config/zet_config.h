/** @file
 * Sensor configurations: frame and sweep timing. Sub-sweeps are in zet_config_subsweep.h.
 *
 * All functions are called on the server's only thread, never from an interrupt. None of them blocks or needs
 * a sensor; only zet_config_create can fail.
 *
 * A setter stores any value, even one outside its range or enumeration; zet_nox_get_buffer_size refuses a
 * configuration that is not valid. A getter returns the value that was set last, or the default. A change
 * takes effect with the next zet_sensor_prepare. The server sets everything before zet_nox_get_buffer_size,
 * except zet_config_enable_tx_set.
 */
#ifndef ZET_CONFIG_H
#define ZET_CONFIG_H

#include <stdbool.h>
#include <stdint.h>

#include "zet_definitions_k330.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A sensor configuration; created and destroyed by the library only. */
typedef struct zet_config zet_config_t;

/**
 * Creates a configuration with the library's defaults.
 *
 * @return the configuration, owned by the caller, to be destroyed with zet_config_destroy; null when memory
 *         is exhausted
 */
zet_config_t *zet_config_create(void);

/**
 * Frees a configuration.
 *
 * At the end of a session the server destroys a configuration before the processing created from it and
 * before the handle of the sensor prepared with it. Destroying these must not access the configuration.
 *
 * @param config  the configuration; null is allowed and does nothing
 */
void zet_config_destroy(zet_config_t *config);

/** Sets the number of sub-sweeps, 1 to 4; 1 by default. */
void zet_config_num_subsweeps_set(zet_config_t *config, uint8_t num_subsweeps);

/** Gets the number of sub-sweeps. */
uint8_t zet_config_num_subsweeps_get(const zet_config_t *config);

/**
 * Sets the number of sweeps in a frame, 1 to 4095; 1 by default. A frame has at most 16383 samples:
 * points of all sub-sweeps times sweeps.
 */
void zet_config_sweeps_per_frame_set(zet_config_t *config, uint16_t sweeps_per_frame);

/** Gets the number of sweeps in a frame. */
uint16_t zet_config_sweeps_per_frame_get(const zet_config_t *config);

/**
 * Sets the rate of the sweeps in a frame in hertz, 0 or 0.01 to 1000000; 0 by default, for the highest
 * possible rate. Must not exceed the max_sweep_rate of the metadata (zet_processing.h).
 */
void zet_config_sweep_rate_set(zet_config_t *config, float sweep_rate);

/** Gets the sweep rate, in hertz; 0 for the highest possible rate. */
float zet_config_sweep_rate_get(const zet_config_t *config);

/**
 * Sets the rate at which the sensor itself paces the frames in hertz, 0 or 0.01 to 1000000; 0 by default, for
 * no pacing. A frame with all its sweeps must fit into one period.
 */
void zet_config_frame_rate_set(zet_config_t *config, float frame_rate);

/** Gets the frame rate, in hertz; 0 for no pacing by the sensor. */
float zet_config_frame_rate_get(const zet_config_t *config);

/**
 * Sets whether sweeps are spaced evenly across frames, false by default. Needs a sweep rate of the frame
 * rate times the number of sweeps in a frame.
 */
void zet_config_continuous_sweep_mode_set(zet_config_t *config, bool enabled);

/** Sets whether the sensor measures the next frame while the last one is read, false by default. */
void zet_config_double_buffering_set(zet_config_t *config, bool enabled);

/** Sets the state of the sensor between frames, ZET_CONFIG_IDLE_STATE_DEEP_SLEEP by default. */
void zet_config_inter_frame_idle_state_set(zet_config_t *config, zet_config_idle_state_t idle_state);

/**
 * Sets the state of the sensor between sweeps, ZET_CONFIG_IDLE_STATE_READY by default. It must not be deeper
 * than between frames.
 */
void zet_config_inter_sweep_idle_state_set(zet_config_t *config, zet_config_idle_state_t idle_state);

#ifdef __cplusplus
}
#endif

#endif
