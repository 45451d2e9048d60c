/** @file
 * The truth: what a simulated sensor should have found in a frame.
 */
#ifndef ZET_SIMULATOR_TRUTH_H
#define ZET_SIMULATOR_TRUTH_H

#include <stdint.h>

#include "zet_simulator.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A target of the scene at the middle of a frame: halfway between its first and its last sweep. */
typedef struct
{
    uint8_t target;      /**< its index in the scene */
    double distance_m;   /**< from the sensor, in metres */
    double velocity_m_s; /**< in metres per second; positive when it moves away */
    double amplitude;    /**< height of its response without noise and clipping, in units of the samples; 0
                            when the sensor receives no echoes */
    double phase_rad;    /**< of the sample at the point nearest to the peak, -pi to pi */
    double noise_power;  /**< mean square of the magnitude of the noise there */
#ifndef ZET_SIMULATOR_SMALL_SCENE
    uint32_t body; /**< of the target, in the scene */
#endif
} zet_simulator_target_truth_t;

/** What a sensor should have found in a frame. */
typedef struct
{
    uint32_t session; /**< number of the session, from 1 */
    zet_sensor_id_t sensor_id;
    uint32_t tick;       /**< passed to zet_simulator_note_tick() after the interrupt of the frame */
    double time_s;       /**< time of the scene at the first sweep, in seconds */
    int16_t temperature; /**< in degrees Celsius */
    double noise_power;  /**< mean square of the magnitude of the noise in a sample of the first sub-sweep */
    double interference; /**< mean power of interferers and bursts over all sweeps, as a multiple of the
                            receiver's own noise power */
    uint8_t target_count;
    /** The targets that the sensor can see, in the order of the scene. */
    zet_simulator_target_truth_t targets[ZET_SIMULATOR_MAX_TARGETS];
} zet_simulator_truth_t;

/**
 * Computes the truth of a frame. Programs that do not call it do not contain it.
 *
 * @param frame  from zet_simulator_observer_t
 * @param truth  receives the truth
 */
void zet_simulator_truth_of(const zet_simulator_frame_t *frame, zet_simulator_truth_t *truth);

#ifdef __cplusplus
}
#endif

#endif
