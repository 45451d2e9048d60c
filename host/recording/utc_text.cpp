/** @file
 * Formats times in UTC.
 */
#include "recording/utc_text.h"

#include <array>
#include <cstdint>
#include <ctime>

namespace vantor
{
namespace
{

using std::chrono::sys_time;

/** A time with a fraction, whose digits follow a leading 1. */
std::string with_fraction(std::chrono::sys_seconds time, int64_t fraction)
{
    const std::time_t calendar = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    gmtime_r(&calendar, &parts);
    std::array<char, 32> text{};
    const auto length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S.", &parts);
    return std::string(text.data(), length) + std::to_string(fraction).substr(1) + "Z";
}

/** A time with a fraction in a unit. */
template <typename unit_t> std::string text_in(sys_time<std::chrono::nanoseconds> time)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const auto second = std::chrono::duration_cast<unit_t>(std::chrono::seconds(1)).count();
    return with_fraction(seconds, second + std::chrono::floor<unit_t>(time - seconds).count());
}

} // namespace

std::string utc_text(sys_time<std::chrono::nanoseconds> time)
{
    return text_in<std::chrono::milliseconds>(time);
}

std::string exact_utc_text(sys_time<std::chrono::nanoseconds> time)
{
    return text_in<std::chrono::microseconds>(time);
}

} // namespace vantor
