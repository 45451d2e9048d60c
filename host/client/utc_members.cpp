/** @file
 * The time in UTC of an item in a frame header.
 */
#include "client/utc_members.h"

#include <cmath>

#include "client/json_members.h"

namespace vantor
{
namespace
{

using std::chrono::microseconds;

constexpr const char *moment_name = "utc_s";
constexpr const char *bound_name = "utc_bound_s";

/** A number of seconds in microseconds; nothing if it is out of range. */
std::optional<microseconds> to_microseconds(double seconds)
{
    const auto most = static_cast<double>(most_utc_seconds);
    if (!(std::abs(seconds) < most))
    {
        return std::nullopt;
    }
    // The fraction alone, since a product of all seconds may be off by a microsecond.
    const double whole = std::floor(seconds);
    return std::chrono::seconds(std::llround(whole)) +
           microseconds(std::llround((seconds - whole) * std::micro::den));
}

/** The number of seconds in microseconds. */
double seconds_in(microseconds span)
{
    return static_cast<double>(span.count()) / std::micro::den;
}

} // namespace

bool set_moment(utc_time &utc, double seconds)
{
    const auto span = to_microseconds(seconds);
    utc.moment = std::chrono::sys_time<microseconds>(span.value_or(microseconds(0)));
    return span.has_value();
}

bool set_bound(utc_time &utc, double seconds)
{
    const auto span = seconds >= 0.0 ? to_microseconds(seconds) : std::nullopt;
    utc.bound = span.value_or(microseconds(0));
    return span.has_value();
}

std::optional<utc_time> utc_members(const nlohmann::json &item)
{
    if (!item.contains(moment_name) && !item.contains(bound_name))
    {
        return std::nullopt;
    }
    utc_time utc;
    if (!set_moment(utc, number_member(item, moment_name)))
    {
        refuse_member(moment_name, "a time less than " + std::to_string(most_utc_seconds) + " s from 1970");
    }
    if (!set_bound(utc, number_member(item, bound_name)))
    {
        refuse_member(bound_name, "a number from 0 to below " + std::to_string(most_utc_seconds));
    }
    return utc;
}

void add_utc_members(nlohmann::ordered_json &item, const utc_time &utc)
{
    const auto moment = std::chrono::floor<microseconds>(utc.moment);
    const auto bound = std::chrono::ceil<microseconds>(utc.bound + (utc.moment - moment));
    item[moment_name] = seconds_in(moment.time_since_epoch());
    item[bound_name] = seconds_in(bound);
}

} // namespace vantor
