/** @file
 * The echoes that a sub-sweep receives.
 *
 * Amplitude, by the radar equation for a point target (Skolnik, section 1.2): the received power is
 * proportional to sigma / d^4, where sigma is the radar cross-section, so the amplitude is proportional to
 * sqrt(sigma) / d^2.
 */
#ifndef ZET_SIMULATOR_ECHOES_H
#define ZET_SIMULATOR_ECHOES_H

#include "sensor_library/signal.h"
#include "zet_simulator_scene.h"

namespace zet_simulator
{

/** What a sensor sees at a point in time. */
struct view
{
    const zet_simulator_scene_t *scene;
    zet_sensor_id_t sensor_id;
    double time_s;
};

/** An echo. */
struct echo
{
    float centre; /**< middle of its response to the latest pulse that can cause it, in base steps from the
                     first point */
    int32_t laps; /**< pulses sent between that one and the arrival of the echo */
    float real;   /**< its height and phase */
    float imag;
};

/** Returns whether a sensor can see a target: it concerns the sensor, is not behind it, nor too far away. */
bool target_is_visible(const view &view, uint32_t target);

/** Returns the echo of a visible target in a sub-sweep that transmits. */
echo echo_of_target(const frame_signal &frame, const subsweep_signal &subsweep, const view &view,
                    uint32_t target);

/** Most echoes of a sub-sweep: one per target, and the direct leakage. */
constexpr uint32_t max_echoes = ZET_SIMULATOR_MAX_TARGETS + 1U;

/**
 * Collects the echoes of a sub-sweep.
 *
 * @param echoes  receives the echoes; has room for max_echoes
 * @return their number; 0 when the sub-sweep does not transmit
 */
uint32_t echoes_collect(const frame_signal &frame, const subsweep_signal &subsweep, const view &view,
                        echo *echoes);

} // namespace zet_simulator

#endif
