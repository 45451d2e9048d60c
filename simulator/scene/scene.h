/** @file
 * A scene at a moment, as one sensor sees it.
 */
#ifndef ZET_SIMULATOR_SCENE_AT_H
#define ZET_SIMULATOR_SCENE_AT_H

#include <cstdint>

#include "zet_simulator_scene.h"

namespace zet_simulator
{

/** Tells whether an entry that names a sensor, or 0 for every sensor, concerns a sensor. */
inline bool scene_concerns(zet_sensor_id_t named, zet_sensor_id_t sensor_id)
{
    return named == 0U || named == sensor_id;
}

/**
 * The distance of a target.
 *
 * d(t) = d0 + v t + A sin(2 pi f t). A target with turning points moves to and fro between them at a constant
 * speed; the oscillation comes on top.
 *
 * @param time_s  time of the scene, in seconds
 * @return the distance in metres; may be negative, for a target that has gone past the sensor
 */
double scene_target_distance_m(const zet_simulator_target_t &target, double time_s);

/** Power of all interferers that a sensor hears at a time, as a multiple of its own noise power. */
float scene_interference(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id, double time_s);

/** Temperature of a sensor at a time, in whole degrees Celsius, as its own thermometer shows it. */
int16_t scene_temperature(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id, double time_s);

} // namespace zet_simulator

#endif
