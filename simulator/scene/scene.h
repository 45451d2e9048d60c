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

/** Finds the entry for a sensor: the first with its number, otherwise the first for every sensor; null when
 * there is none. */
template <typename entry_t>
const entry_t *scene_find(const entry_t *entries, uint32_t count, zet_sensor_id_t sensor_id)
{
    const entry_t *found = nullptr;
    for (const entry_t *each = entries; each != entries + count; ++each)
    {
        const bool is_more_specific = found == nullptr || (found->sensor_id == 0U && each->sensor_id != 0U);
        if (scene_concerns(each->sensor_id, sensor_id) && is_more_specific)
        {
            found = each;
        }
    }
    return found;
}

/** Returns the power of all interferers at a sensor at a time, as a multiple of its own noise power. */
float scene_interference(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id, double time_s);

/** Returns the temperature of a sensor at a time, in degrees Celsius. */
double scene_celsius(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id, double time_s);

/** Returns the temperature that a sensor measures of itself at a time, rounded to degrees Celsius. */
int16_t scene_temperature(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id, double time_s);

} // namespace zet_simulator

#endif
