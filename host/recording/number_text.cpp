/** @file
 * Formats numbers as text.
 */
#include "recording/number_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace vantor
{

std::string fixed(double value, int digits)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(digits) << value;
    return text.str();
}

std::string three_digits(double value)
{
    const double size = std::fabs(value);
    const int digits = size > 0.0 ? 2 - static_cast<int>(std::floor(std::log10(size))) : 0;
    return fixed(value, std::clamp(digits, 0, 9));
}

std::string rate_text(double rate)
{
    return rate > 0.0 && rate < 10.0 ? three_digits(rate) : fixed(rate, 1);
}

std::string counted(uint64_t number, const std::string &noun)
{
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string format_bytes(double bytes)
{
    constexpr std::array<const char *, 5> units{"B", "kB", "MB", "GB", "TB"};
    size_t unit = 0;
    while (bytes >= 999.95 && unit + 1 < units.size())
    {
        bytes /= 1000.0;
        ++unit;
    }
    return fixed(bytes, unit == 0 ? 0 : 1) + " " + units[unit];
}

} // namespace vantor
