/** @file
 * Interference and temperature of a scene over time.
 */
#include "scene/scene.h"

#include <algorithm>

#include "common/rounding.h"

namespace
{

constexpr float default_temperature = 25.0F;

/** Returns whether an interferer transmits at a time. */
bool is_active(const zet_simulator_interferer_t &interferer, double time_s)
{
    double since_start = time_s - static_cast<double>(interferer.start_s);
    if (since_start < 0.0)
    {
        return false;
    }
    if (interferer.period_s > 0.0F)
    {
        const auto period = static_cast<double>(interferer.period_s);
        since_start -= zet_simulator::floor_of(since_start / period) * period;
    }
    return interferer.duration_s <= 0.0F || since_start < static_cast<double>(interferer.duration_s);
}

} // namespace

namespace zet_simulator
{

float scene_interference(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id, double time_s)
{
    float power = 0.0F;
    for (uint32_t i = 0; i < scene.interferer_count; ++i)
    {
        const zet_simulator_interferer_t &interferer = scene.interferers[i];
        if (scene_concerns(interferer.sensor_id, sensor_id) && is_active(interferer, time_s))
        {
            power += interferer.strength;
        }
    }
    return power;
}

double scene_celsius(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id, double time_s)
{
    auto celsius = static_cast<double>(default_temperature);
    const zet_simulator_temperature_t *temperature =
        scene_find(scene.temperatures, scene.temperature_count, sensor_id);
    if (temperature != nullptr)
    {
        celsius = static_cast<double>(temperature->celsius) +
                  static_cast<double>(temperature->drift_celsius_per_s) * time_s;
    }
    const double lowest = -60.0;
    const double highest = 150.0;
    return std::clamp(celsius, lowest, highest);
}

int16_t scene_temperature(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id, double time_s)
{
    return static_cast<int16_t>(floor_of(scene_celsius(scene, sensor_id, time_s) + 0.5));
}

} // namespace zet_simulator
