/** @file
 * Reads numbers with units from options.
 */
#include "commands/quantity.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

#include "commands/usage_error.h"

namespace vantor
{

std::optional<double> parse_quantity(std::string_view text, std::span<const unit> units)
{
    double value = 0.0;
    const auto [stop, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    auto rest = text.substr(static_cast<size_t>(stop - text.data()));
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    double size = rest.empty() ? 1.0 : 0.0;
    for (const auto &each : units)
    {
        size = rest == each.name ? each.size : size;
    }
    const bool valid = failure == std::errc() && size > 0.0 && std::isfinite(value);
    return valid ? std::optional(value * size) : std::nullopt;
}

double parse_length(const char *option, const std::string &text)
{
    const auto length = parse_quantity(text, length_units);
    if (!length || *length <= 0.0)
    {
        throw usage_error(std::string(option) + ": \"" + text +
                          "\" is not a length; use a number above 0 with or without a unit (m, cm, mm)");
    }
    return *length;
}

double parse_distance(const char *option, const std::string &text)
{
    const auto distance = parse_quantity(text, length_units);
    if (!distance)
    {
        throw usage_error(std::string(option) + ": \"" + text +
                          "\" is not a distance; use a number with or without a unit (m, cm, mm)");
    }
    return *distance;
}

} // namespace vantor
