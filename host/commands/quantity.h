/** @file
 * Reads numbers with units from options.
 */
#ifndef VANTOR_QUANTITY_H
#define VANTOR_QUANTITY_H

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vantor
{

/** A unit, and its size in the base unit. */
struct unit
{
    std::string_view name;
    double size;
};

/** The units of lengths; the base unit is metres. */
inline constexpr unit length_units[] = {{"cm", 0.01}, {"mm", 0.001}, {"m", 1.0}};

/**
 * Reads a number that may have a unit.
 *
 * @return the number in the base unit, or nothing if the text is not a finite number with one of the units
 */
std::optional<double> parse_quantity(std::string_view text, std::span<const unit> units);

/**
 * Reads a length above 0, in metres.
 *
 * @param option  its name, for the message
 * @throws usage_error if the text is not such a length
 */
double parse_length(const char *option, const std::string &text);

/**
 * Reads a distance from a sensor, in metres: it may be negative, because items can begin before the sensor.
 *
 * @param option  its name, for the message
 * @throws usage_error if the text is not a distance
 */
double parse_distance(const char *option, const std::string &text);

} // namespace vantor

#endif
