/** @file
 * The motion of targets, as a sensor sees it.
 */
#ifndef ZET_SIMULATOR_SIGHT_H
#define ZET_SIMULATOR_SIGHT_H

#include "zet_simulator_scene.h"

namespace zet_simulator
{

/** A target at a point in time, seen from a sensor. */
struct sight
{
    double distance_m;   /**< negative for a target that has passed the sensor */
    double velocity_m_s; /**< derivative of the distance; positive when it grows */
    float beam;          /**< factor of the antenna pattern on the amplitude of the echo, at most 1 */
};

/** Returns whether a sensor can see a target at a time: it names the sensor, and is there. */
bool scene_shows(const zet_simulator_target_t &target, zet_sensor_id_t sensor_id, double time_s);

/**
 * Returns where a sensor sees a target.
 *
 * Without a place, the distance is d(t) = d0 + v t + track(t) + sum of A sin(2 pi (f t + phase + wander sin(2
 * pi f_w t))); a target with turning points moves back and forth between them at a constant speed, and the
 * rest is added. With a place, each of x, y and z is such a sum; the distance is that from the sensor, to
 * which the oscillations along the line of sight are added.
 *
 * The track is a cubic Hermite spline through the keyframes. The slope at a keyframe is (p_next - p_previous)
 * / (t_next - t_previous), as that of Catmull and Rom for uneven times, and 0 at the first and the last one,
 * so the velocity is continuous.
 *
 * The amplitude of an echo from an angle theta off the axis has the factor cos^n(theta), and 0 behind the
 * sensor. A beam with a one-way width of B at half power has n = ln(1/2) / ln(cos(B / 2)): the power falls to
 * one half at B / 2 on the way out, and again on the way back.
 *
 * @param time_s  time of the scene, in seconds
 */
sight scene_sight(const zet_simulator_scene_t &scene, const zet_simulator_target_t &target,
                  zet_sensor_id_t sensor_id, double time_s);

} // namespace zet_simulator

#endif
