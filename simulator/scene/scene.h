/** @file
 * A scene at a point in time, as one sensor sees it.
 */
#ifndef ZET_SIMULATOR_SCENE_AT_H
#define ZET_SIMULATOR_SCENE_AT_H

#include <cstdint>

#include "zet_simulator_scene.h"

namespace zet_simulator
{

/** Returns whether an entry applies to a sensor; it names one sensor, or 0 for every sensor. */
inline bool scene_concerns(zet_sensor_id_t named, zet_sensor_id_t sensor_id)
{
    return named == 0U || named == sensor_id;
}

/**
 * Returns the distance of a target.
 *
 * d(t) = d0 + v t + A sin(2 pi f t). A target with turning points moves back and forth between them at a
 * constant speed; the oscillation is added.
 *
 * @param time_s  time of the scene, in seconds
 * @return the distance in metres; negative for a target that has passed the sensor
 */
double scene_target_distance_m(const zet_simulator_target_t &target, double time_s);

/** Returns the power of all interferers at a sensor at a time, as a multiple of its own noise power. */
float scene_interference(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id, double time_s);

/** Returns the temperature that a sensor measures of itself at a time, rounded to degrees Celsius. */
int16_t scene_temperature(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id, double time_s);

} // namespace zet_simulator

#endif
