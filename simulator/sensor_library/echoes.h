/** @file
 * The echoes that a sub-sweep receives.
 *
 * Amplitude, by the radar equation for a point target (Skolnik, section 1.2): the received power is
 * proportional to sigma / d^4, where sigma is the radar cross-section, so the amplitude is proportional to
 * sqrt(sigma) / d^2.
 */
#ifndef ZET_SIMULATOR_ECHOES_H
#define ZET_SIMULATOR_ECHOES_H

#include <optional>

#include "scene/sight.h"
#include "sensor_library/signal.h"
#include "zet_simulator_scene.h"

namespace zet_simulator
{

/** What a sensor sees at a point in time. */
struct view
{
    const zet_simulator_scene_t *scene;
    const zet_simulator_hardware_t *hardware; /**< of the sensor; null if it is ideal */
    zet_sensor_id_t sensor_id;
    double time_s;
    uint64_t band_key;    /**< of the random numbers that all sensors of the board share, ... */
    uint64_t session_key; /**< ... of those of the sensor's session ... */
    uint64_t frame_key;   /**< ... and of the frame */
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

/** Returns where a sensor sees a target; nothing when it does not: it is not there, that of another sensor,
 * behind the sensor, or too far away. */
std::optional<sight> sight_of_target(const view &view, uint32_t target);

/** Returns the echo of a target that a sensor sees, in a sub-sweep that transmits. */
echo echo_of_target(const frame_signal &frame, const subsweep_signal &subsweep, const view &view,
                    uint32_t target, const sight &seen);

/** Keys of a frame's parts below this one are those of its noise, those from it on of the targets. */
constexpr uint64_t first_fluctuation_part = 16;

/** Most echoes of a sub-sweep: those of the targets and the direct leakage, each with two sidelobes. */
constexpr uint32_t max_echoes = 3U * (ZET_SIMULATOR_MAX_TARGETS + 1U);

/**
 * Collects the echoes of a sub-sweep.
 *
 * @param echoes  receives the echoes, the direct leakage or the loopback first; has room for max_echoes
 * @return their number; 0 when the sub-sweep does not transmit
 */
uint32_t echoes_collect(const frame_signal &frame, const subsweep_signal &subsweep, const view &view,
                        echo *echoes);

} // namespace zet_simulator

#endif
