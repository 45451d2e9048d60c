/** @file
 * Converts samples and phases of the sensor to levels, distances and velocities.
 */
#include "plot/sensor_scale.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace vantor
{

double dbfs(double amplitude)
{
    constexpr double least = 0.1;
    return 20.0 * std::log10(std::max(amplitude, least) / full_scale);
}

double metres_per_radian()
{
    return sensor_figure("wavelength") / (4.0 * std::numbers::pi);
}

int subsweep_setting(const recorded_item &item, size_t subsweep, const std::string &name)
{
    const auto &config = item.configuration.document.at("config");
    const auto place = config.contains("subsweeps")
                           ? nlohmann::json::json_pointer("/subsweeps") / subsweep / name
                           : nlohmann::json::json_pointer() / name;
    // A member that is missing would be found by an exception, which is slow: this is called for each frame.
    if (!config.contains(place) || !config.at(place).is_number())
    {
        return configuration_schema()["$defs"][name]["default"].get<int>();
    }
    using limits = std::numeric_limits<int>;
    return static_cast<int>(std::clamp<double>(config.at(place).get<double>(), limits::min(), limits::max()));
}

double pulse_width(const recorded_item &item, size_t subsweep)
{
    return pulse_width(subsweep_setting(item, subsweep, "profile")).value_or(0.0);
}

double step_length(const recorded_item &item, size_t subsweep)
{
    const auto &ranges = item.configuration.subsweeps;
    return subsweep < ranges.size() ? ranges[subsweep].step_length * item.layout.base_step_length_m : 0.0;
}

double sweep_rate(const recorded_item &item)
{
    const double configured = item.configuration.sweep_rate;
    return configured > 0.0 ? configured : item.layout.max_sweep_rate;
}

bool covers_distance(const recorded_item &item, double distance)
{
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        const auto &place = item.layout.subsweeps[i];
        const double margin = step_length(item, i) / 2.0;
        if (place.length > 0 && distance >= item.layout.distances_m[place.offset] - margin &&
            distance <= item.layout.distances_m[place.offset + place.length - 1] + margin)
        {
            return true;
        }
    }
    return false;
}

} // namespace vantor
