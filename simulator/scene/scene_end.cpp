/** @file
 * When the last thing happens in a scene.
 */
#include <algorithm>
#include <iterator>

#include "zet_simulator_scene_json.h"

namespace
{

/** Returns whether an oscillation moves a target. */
bool moves(const zet_simulator_oscillation_t &oscillation)
{
    const bool has_amplitude =
        oscillation.amplitude_m != 0.0F ||
        std::any_of(std::begin(oscillation.amplitude_xyz_m), std::end(oscillation.amplitude_xyz_m),
                    [](float amplitude) { return amplitude != 0.0F; });
    const bool wanders = oscillation.wander_turns != 0.0F && oscillation.wander_frequency_hz != 0.0F;
    return has_amplitude && (oscillation.frequency_hz != 0.0F || wanders);
}

/** Returns whether a target moves or fluctuates until it disappears. */
bool is_restless(const zet_simulator_scene_t &scene, const zet_simulator_target_t &target)
{
    const zet_simulator_oscillation_t *first = &scene.oscillations[target.first_oscillation];
    return target.velocity_m_s != 0.0F || target.fluctuation != ZET_SIMULATOR_FLUCTUATION_NONE ||
           (target.oscillation_amplitude_m != 0.0F && target.oscillation_frequency_hz != 0.0F) ||
           std::any_of(std::begin(target.place_velocity_m_s), std::end(target.place_velocity_m_s),
                       [](float velocity) { return velocity != 0.0F; }) ||
           std::any_of(first, first + target.oscillation_count, moves);
}

/** Notes when the last thing happens to a target; returns false if that is never. */
bool note_end(const zet_simulator_scene_t &scene, const zet_simulator_target_t &target, float &end_s)
{
    if (target.leave_s != 0.0F)
    {
        end_s = std::max(end_s, target.leave_s);
        return true;
    }
    end_s = std::max(end_s, target.enter_s);
    if (target.keyframe_count > 0U)
    {
        end_s = std::max(end_s, scene.keyframes[target.first_keyframe + target.keyframe_count - 1U].time_s);
    }
    return !is_restless(scene, target);
}

} // namespace

bool zet_simulator_scene_end(const zet_simulator_scene_t *scene, double *end_s)
{
    float end = 0.0F;
    bool ends = true;
    for (uint32_t i = 0; i < scene->target_count; ++i)
    {
        ends &= note_end(*scene, scene->targets[i], end);
    }
    for (uint32_t i = 0; i < scene->interferer_count; ++i)
    {
        const zet_simulator_interferer_t &interferer = scene->interferers[i];
        end = std::max(end, interferer.start_s + interferer.duration_s);
        ends &= interferer.period_s == 0.0F;
    }
    for (uint32_t i = 0; i < scene->temperature_count; ++i)
    {
        ends &= scene->temperatures[i].drift_celsius_per_s == 0.0F;
    }
    *end_s = static_cast<double>(end);
    return ends;
}
