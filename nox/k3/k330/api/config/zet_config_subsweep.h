/** @file
 * Sub-sweeps of a configuration: the distance ranges that one sweep covers.
 *
 * Every setter takes the configuration, the value and the index of the sub-sweep, 0 to 3, which may be
 * beyond the number of sub-sweeps. One base step is the distance zet_processing_points_to_meter(1).
 *
 * The rules for setters in zet_config.h apply here too: called on the server's only thread, never from an
 * interrupt; they cannot fail, do not block, and store any value.
 */
#ifndef ZET_CONFIG_SUBSWEEP_H
#define ZET_CONFIG_SUBSWEEP_H

#include <stdbool.h>
#include <stdint.h>

#include "zet_config.h"
#include "zet_definitions_k330.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sets the distance of the first point, in base steps, -1000 to 20000; 80 by default. The last point is
 * limited by the pulse repetition frequency.
 */
void zet_config_subsweep_start_point_set(zet_config_t *config, int32_t start_point, uint8_t index);

/** Sets the number of points, 1 to 4095; 160 by default. */
void zet_config_subsweep_num_points_set(zet_config_t *config, uint16_t num_points, uint8_t index);

/** Sets the distance between two points, in base steps, 1 to 1000; 1 by default. */
void zet_config_subsweep_step_length_set(zet_config_t *config, uint16_t step_length, uint8_t index);

/** Sets the pulse profile, 1 to 5; 3 by default. */
void zet_config_subsweep_profile_set(zet_config_t *config, zet_config_profile_t profile, uint8_t index);

/** Sets how many pulses are averaged into one point, 1 to 511; 8 by default. */
void zet_config_subsweep_hwaas_set(zet_config_t *config, uint16_t hwaas, uint8_t index);

/** Sets the receiver gain, 0 to 23; 16 by default. */
void zet_config_subsweep_receiver_gain_set(zet_config_t *config, uint8_t gain, uint8_t index);

/** Sets whether the sub-sweep transmits, true by default. */
void zet_config_subsweep_enable_tx_set(zet_config_t *config, bool enabled, uint8_t index);

/** Sets whether the receiver gets the transmitter's signal instead of the antenna's, false by default. */
void zet_config_subsweep_enable_loopback_set(zet_config_t *config, bool enabled, uint8_t index);

/** Sets whether the phase is made coherent along the distance, false by default. */
void zet_config_subsweep_phase_enhancement_set(zet_config_t *config, bool enabled, uint8_t index);

/** Sets whether the imbalance of the in-phase and quadrature paths is compensated, false by default. */
void zet_config_subsweep_iq_imbalance_compensation_set(zet_config_t *config, bool enabled, uint8_t index);

/**
 * Sets the pulse repetition frequency, ZET_CONFIG_PRF_15_6_MHZ by default. The last point of the sub-sweep
 * must not be beyond the distance whose echo arrives before the next pulse: base step 3074 with
 * ZET_CONFIG_PRF_19_5_MHZ, 3843 with ZET_CONFIG_PRF_15_6_MHZ, 4612 with ZET_CONFIG_PRF_13_0_MHZ, 6918 with
 * ZET_CONFIG_PRF_8_7_MHZ, 9224 with ZET_CONFIG_PRF_6_5_MHZ and 11530 with ZET_CONFIG_PRF_5_2_MHZ.
 */
void zet_config_subsweep_prf_set(zet_config_t *config, zet_config_prf_t prf, uint8_t index);

#ifdef __cplusplus
}
#endif

#endif
