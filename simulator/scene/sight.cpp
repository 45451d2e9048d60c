/** @file
 * The motion of targets, as a sensor sees it.
 */
#include "scene/sight.h"

#include <algorithm>
#include <cmath>

#include "common/logarithm.h"
#include "common/rounding.h"
#include "common/trigonometry.h"
#include "scene/scene.h"

namespace
{

using namespace zet_simulator;

/** A position along an axis and its derivative. */
struct motion
{
    double position;
    double velocity;
};

/** An oscillation of amplitude 1 at a point in time, and its derivative. */
struct wave
{
    float value;
    float slope_per_s;
};

constexpr float two_pi = 6.2831853F;

/** Returns an oscillation at a time that has a phase and turns at a rate. */
wave wave_of(double turns, float turns_per_s)
{
    float sine = 0.0F;
    float cosine = 0.0F;
    sine_and_cosine_of(phase_from_turns(turns), sine, cosine);
    return {sine, two_pi * turns_per_s * cosine};
}

/** Adds an oscillation. */
void add_wave(motion &sum, float amplitude, const wave &wave)
{
    sum.position += static_cast<double>(amplitude * wave.value);
    sum.velocity += static_cast<double>(amplitude * wave.slope_per_s);
}

/** Returns the motion at a constant speed, back and forth if the target has turning points. */
motion straight_motion(const zet_simulator_target_t &target, double time_s)
{
    const auto velocity = static_cast<double>(target.velocity_m_s);
    const motion free = {static_cast<double>(target.distance_m) + velocity * time_s, velocity};
    if (target.farthest_m <= target.nearest_m)
    {
        return free;
    }
    const auto nearest = static_cast<double>(target.nearest_m);
    const double span = static_cast<double>(target.farthest_m) - nearest;
    const double laps = (free.position - nearest) / (2.0 * span);
    const double offset = (laps - floor_of(laps)) * 2.0 * span;
    return offset > span ? motion{nearest + (2.0 * span - offset), -velocity}
                         : motion{nearest + offset, velocity};
}

/** Adds the oscillation that is a part of the target itself. */
void add_own_wave(motion &sum, const zet_simulator_target_t &target, double time_s)
{
    if (target.oscillation_amplitude_m != 0.0F)
    {
        const float frequency = target.oscillation_frequency_hz;
        add_wave(sum, target.oscillation_amplitude_m,
                 wave_of(static_cast<double>(frequency) * time_s, frequency));
    }
}

#ifndef ZET_SIMULATOR_SMALL_SCENE
constexpr size_t axis_count = 3;

/** Returns an oscillation at a time. */
wave wave_at(const zet_simulator_oscillation_t &oscillation, double time_s)
{
    double turns =
        static_cast<double>(oscillation.frequency_hz) * time_s + static_cast<double>(oscillation.phase_turns);
    float turns_per_s = oscillation.frequency_hz;
    if (oscillation.wander_turns != 0.0F)
    {
        const float frequency = oscillation.wander_frequency_hz;
        const wave wander = wave_of(static_cast<double>(frequency) * time_s, frequency);
        turns += static_cast<double>(oscillation.wander_turns * wander.value);
        turns_per_s += oscillation.wander_turns * wander.slope_per_s;
    }
    return wave_of(turns, turns_per_s);
}

/** Returns the slope of a track at a keyframe. */
double slope_of(const zet_simulator_keyframe_t *track, uint32_t count, uint32_t index, size_t axis)
{
    if (index == 0U || index + 1U == count)
    {
        return 0.0;
    }
    const zet_simulator_keyframe_t &previous = track[index - 1U];
    const zet_simulator_keyframe_t &next = track[index + 1U];
    return (static_cast<double>(next.position[axis]) - static_cast<double>(previous.position[axis])) /
           (static_cast<double>(next.time_s) - static_cast<double>(previous.time_s));
}

/** Adds the track of a target; none without keyframes. */
void add_track(motion &sum, const zet_simulator_keyframe_t *track, uint32_t count, size_t axis, double time_s)
{
    if (count == 0U)
    {
        return;
    }
    const zet_simulator_keyframe_t *later =
        std::upper_bound(track, track + count, time_s, [](double time, const zet_simulator_keyframe_t &each) {
            return time < static_cast<double>(each.time_s);
        });
    const auto next = static_cast<uint32_t>(later - track);
    if (next == 0U || next == count)
    {
        sum.position += static_cast<double>(track[next == 0U ? 0U : count - 1U].position[axis]);
        return;
    }
    const zet_simulator_keyframe_t &from = track[next - 1U];
    const zet_simulator_keyframe_t &to = track[next];
    const double span_s = static_cast<double>(to.time_s) - static_cast<double>(from.time_s);
    const double u = (time_s - static_cast<double>(from.time_s)) / span_s;
    const double difference =
        static_cast<double>(to.position[axis]) - static_cast<double>(from.position[axis]);
    const double start = slope_of(track, count, next - 1U, axis) * span_s;
    const double end = slope_of(track, count, next, axis) * span_s;
    const double square = 3.0 * difference - 2.0 * start - end;
    const double cube = start + end - 2.0 * difference;
    sum.position += static_cast<double>(from.position[axis]) + u * (start + u * (square + u * cube));
    sum.velocity += (start + u * (2.0 * square + u * 3.0 * cube)) / span_s;
}

/** Adds the oscillations along the line of sight. */
void add_sight_waves(motion &sum, const zet_simulator_scene_t &scene, const zet_simulator_target_t &target,
                     double time_s)
{
    add_own_wave(sum, target, time_s);
    for (uint32_t i = 0; i < target.oscillation_count; ++i)
    {
        const zet_simulator_oscillation_t &oscillation = scene.oscillations[target.first_oscillation + i];
        add_wave(sum, oscillation.amplitude_m, wave_at(oscillation, time_s));
    }
}

/** Returns the motion along an axis in space. */
motion motion_in_space(const zet_simulator_scene_t &scene, const zet_simulator_target_t &target, size_t axis,
                       double time_s)
{
    const auto velocity = static_cast<double>(target.place_velocity_m_s[axis]);
    motion sum = {static_cast<double>(target.place_m[axis]) + velocity * time_s, velocity};
    add_track(sum, &scene.keyframes[target.first_keyframe], target.keyframe_count, axis, time_s);
    for (uint32_t i = 0; i < target.oscillation_count; ++i)
    {
        const zet_simulator_oscillation_t &oscillation = scene.oscillations[target.first_oscillation + i];
        if (oscillation.amplitude_xyz_m[axis] != 0.0F)
        {
            add_wave(sum, oscillation.amplitude_xyz_m[axis], wave_at(oscillation, time_s));
        }
    }
    return sum;
}

/** Returns where a sensor is and where it looks. */
zet_simulator_pose_t pose_of(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id)
{
    const zet_simulator_pose_t *found = scene_find(scene.poses, scene.pose_count, sensor_id);
    zet_simulator_pose_t pose = {};
    if (found != nullptr)
    {
        pose = *found;
    }
    if (pose.direction[0] == 0.0F && pose.direction[1] == 0.0F && pose.direction[2] == 0.0F)
    {
        pose.direction[1] = 1.0F;
    }
    return pose;
}

/** Returns the factor of the antenna pattern at an angle off the axis, of which the cosine is given. */
float beam_factor(float beam_deg, float cosine)
{
    if (beam_deg == 0.0F)
    {
        return 1.0F;
    }
    if (cosine <= 0.0F)
    {
        return 0.0F;
    }
    // The cosine of half the beam is the sine of what is missing to a quarter of a turn.
    const double edge_turns = 0.25 - static_cast<double>(beam_deg) / 720.0;
    const float exponent = logarithm_of(0.5F) / logarithm_of(sine_of(phase_from_turns(edge_turns)));
    return std::exp(exponent * logarithm_of(cosine));
}

/** Returns where a sensor sees a target that has a place. */
sight sight_of_place(const zet_simulator_scene_t &scene, const zet_simulator_target_t &target,
                     const zet_simulator_pose_t &pose, double time_s)
{
    double squares = 0.0;
    double rate = 0.0;
    double along = 0.0;
    double direction_squares = 0.0;
    for (size_t axis = 0; axis < axis_count; ++axis)
    {
        const motion motion = motion_in_space(scene, target, axis, time_s);
        const double offset = motion.position - static_cast<double>(pose.place_m[axis]);
        const auto direction = static_cast<double>(pose.direction[axis]);
        squares += offset * offset;
        rate += offset * motion.velocity;
        along += offset * direction;
        direction_squares += direction * direction;
    }
    const double distance = std::sqrt(squares);
    if (distance == 0.0)
    {
        return {};
    }
    motion sum = {distance, rate / distance};
    add_sight_waves(sum, scene, target, time_s);
    const double cosine = along / (distance * std::sqrt(direction_squares));
    return {sum.position, sum.velocity, beam_factor(pose.beam_deg, static_cast<float>(cosine))};
}
#endif

} // namespace

namespace zet_simulator
{

bool scene_shows(const zet_simulator_target_t &target, zet_sensor_id_t sensor_id, double time_s)
{
    return scene_concerns(target.sensor_id, sensor_id) && time_s >= static_cast<double>(target.enter_s) &&
           (target.leave_s == 0.0F || time_s < static_cast<double>(target.leave_s));
}

#ifdef ZET_SIMULATOR_SMALL_SCENE
sight scene_sight(const zet_simulator_scene_t & /*scene*/, const zet_simulator_target_t &target,
                  zet_sensor_id_t /*sensor_id*/, double time_s)
{
    motion sum = straight_motion(target, time_s);
    add_own_wave(sum, target, time_s);
    return {sum.position, sum.velocity, 1.0F};
}
#else
sight scene_sight(const zet_simulator_scene_t &scene, const zet_simulator_target_t &target,
                  zet_sensor_id_t sensor_id, double time_s)
{
    if (target.has_place)
    {
        return sight_of_place(scene, target, pose_of(scene, sensor_id), time_s);
    }
    motion sum = straight_motion(target, time_s);
    add_track(sum, &scene.keyframes[target.first_keyframe], target.keyframe_count, 0, time_s);
    add_sight_waves(sum, scene, target, time_s);
    return {sum.position, sum.velocity, 1.0F};
}
#endif

} // namespace zet_simulator
