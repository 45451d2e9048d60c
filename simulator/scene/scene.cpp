/** @file
 * Motion, interference and temperature of a scene over time.
 */
#include "scene/scene.h"

#include <algorithm>

#include "common/trigonometry.h"

namespace
{

constexpr float default_temperature = 25.0F;

/** Returns the largest integer that is not above a value; the value must fit 64 bits. */
double floor_of(double value)
{
    const auto whole = static_cast<double>(static_cast<int64_t>(value));
    return whole > value ? whole - 1.0 : whole;
}

/** Converts the distance on a straight path into that of a path back and forth between two turning points. */
double back_and_forth(double distance, double nearest, double farthest)
{
    const double span = farthest - nearest;
    const double laps = (distance - nearest) / (2.0 * span);
    const double offset = (laps - floor_of(laps)) * 2.0 * span;
    return nearest + (offset > span ? 2.0 * span - offset : offset);
}

/** Finds the temperature of a sensor: that of its own entry before that of an entry for every sensor. */
const zet_simulator_temperature_t *find_temperature(const zet_simulator_scene_t &scene,
                                                    zet_sensor_id_t sensor_id)
{
    const zet_simulator_temperature_t *found = nullptr;
    for (uint32_t i = 0; i < scene.temperature_count; ++i)
    {
        const zet_simulator_temperature_t &each = scene.temperatures[i];
        const bool is_more_specific = found == nullptr || (found->sensor_id == 0U && each.sensor_id != 0U);
        if (zet_simulator::scene_concerns(each.sensor_id, sensor_id) && is_more_specific)
        {
            found = &each;
        }
    }
    return found;
}

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
        since_start -= floor_of(since_start / period) * period;
    }
    return interferer.duration_s <= 0.0F || since_start < static_cast<double>(interferer.duration_s);
}

} // namespace

namespace zet_simulator
{

double scene_target_distance_m(const zet_simulator_target_t &target, double time_s)
{
    double distance =
        static_cast<double>(target.distance_m) + static_cast<double>(target.velocity_m_s) * time_s;
    if (target.farthest_m > target.nearest_m)
    {
        distance = back_and_forth(distance, static_cast<double>(target.nearest_m),
                                  static_cast<double>(target.farthest_m));
    }
    if (target.oscillation_amplitude_m != 0.0F)
    {
        const double turns = static_cast<double>(target.oscillation_frequency_hz) * time_s;
        distance += static_cast<double>(target.oscillation_amplitude_m * sine_of(phase_from_turns(turns)));
    }
    return distance;
}

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

int16_t scene_temperature(const zet_simulator_scene_t &scene, zet_sensor_id_t sensor_id, double time_s)
{
    auto celsius = static_cast<double>(default_temperature);
    const zet_simulator_temperature_t *temperature = find_temperature(scene, sensor_id);
    if (temperature != nullptr)
    {
        celsius = static_cast<double>(temperature->celsius) +
                  static_cast<double>(temperature->drift_celsius_per_s) * time_s;
    }
    const double lowest = -60.0;
    const double highest = 150.0;
    return static_cast<int16_t>(floor_of(std::clamp(celsius, lowest, highest) + 0.5));
}

} // namespace zet_simulator
