/** @file
 * Echoes of targets, of the transmitter itself, and of the loopback.
 */
#include "sensor_library/echoes.h"

#include <algorithm>
#include <cmath>

#include "common/trigonometry.h"
#include "scene/scene.h"

namespace
{

using namespace zet_simulator;

/** Amplitude of the direct leakage from transmitter to receiver, relative to 1 square metre at 1 metre. */
constexpr float leakage_amplitude = 2.5F;

/** Amplitude of the loopback, in the same unit. */
constexpr float loopback_amplitude = 2.0F;

/** Shortest distance at which the radar equation applies; the echo of a nearer target is not stronger. */
constexpr double near_field_m = 0.05;

/** Distance beyond which nothing can be seen. */
constexpr double horizon_m = 1.0e6;

/** Returns an echo of an amplitude at a distance in base steps. */
echo echo_at(const frame_signal &frame, const subsweep_signal &subsweep, double steps, float amplitude)
{
    float sine = 0.0F;
    float cosine = 0.0F;
    sine_and_cosine_of(phase_from_turns(frame.tx_frequency * steps), sine, cosine);
    const auto laps = static_cast<int32_t>(steps / subsweep.unambiguous_steps);
    const double apparent = steps - laps * subsweep.unambiguous_steps;
    return {static_cast<float>(apparent - subsweep.start_point), laps, amplitude * cosine, amplitude * sine};
}

} // namespace

namespace zet_simulator
{

bool target_is_visible(const view &view, uint32_t target)
{
    const zet_simulator_target_t &seen = view.scene->targets[target];
    const double distance_m = scene_target_distance_m(seen, view.time_s);
    return scene_concerns(seen.sensor_id, view.sensor_id) && distance_m > 0.0 && distance_m < horizon_m;
}

echo echo_of_target(const frame_signal &frame, const subsweep_signal &subsweep, const view &view,
                    uint32_t target)
{
    const zet_simulator_target_t &seen = view.scene->targets[target];
    const double distance_m = scene_target_distance_m(seen, view.time_s);
    const double limited_m = std::max(distance_m, near_field_m);
    const auto squared_m = static_cast<float>(limited_m * limited_m);
    const float amplitude = subsweep.echo_amplitude * std::sqrt(seen.strength_m2) / squared_m;
    return echo_at(frame, subsweep, distance_m / meters_per_step, amplitude);
}

uint32_t echoes_collect(const frame_signal &frame, const subsweep_signal &subsweep, const view &view,
                        echo *echoes)
{
    if (!subsweep.transmits)
    {
        return 0;
    }
    if (subsweep.loops_back)
    {
        echoes[0] = echo_at(frame, subsweep, 0.0, subsweep.echo_amplitude * loopback_amplitude);
        return 1;
    }
    uint32_t count = 0;
    echoes[count++] = echo_at(frame, subsweep, 0.0, subsweep.echo_amplitude * leakage_amplitude);
    for (uint32_t i = 0; i < view.scene->target_count; ++i)
    {
        if (target_is_visible(view, i))
        {
            echoes[count++] = echo_of_target(frame, subsweep, view, i);
        }
    }
    return count;
}

} // namespace zet_simulator
