/** @file
 * A time in UTC and its bound as two cells of a table.
 */
#include "recording/utc_cells.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <system_error>
#include <utility>

namespace vantor
{
namespace
{

using std::chrono::microseconds;

constexpr int64_t microseconds_per_second = 1'000'000;

/** Digits after the point. */
constexpr size_t fraction_digits = 6;

/** Appends a span in seconds. */
void append_seconds(std::string &row, microseconds span)
{
    std::array<char, 32> digits{};
    auto *end = digits.data();
    if (span < microseconds::zero())
    {
        *end++ = '-';
        span = -span;
    }
    end = std::to_chars(end, digits.data() + digits.size(), span.count() / microseconds_per_second).ptr;
    // The leading 1 keeps zeros, and becomes the point.
    auto *const point = end;
    end = std::to_chars(end, digits.data() + digits.size(),
                        microseconds_per_second + span.count() % microseconds_per_second)
              .ptr;
    *point = '.';
    row.append(digits.data(), end);
    row += ',';
}

/** Reads all of a text as a number; false if it is not one. */
bool read_digits(std::string_view text, uint64_t &number)
{
    const auto [stop, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc{} && stop == text.data() + text.size();
}

/** Reads seconds with six digits after the point, without a sign; nothing if they are not that. */
std::optional<microseconds> read_seconds(std::string_view cell)
{
    const auto point = cell.find('.');
    uint64_t seconds = 0;
    uint64_t fraction = 0;
    const bool valid = point != std::string_view::npos && cell.size() - point - 1 == fraction_digits &&
                       read_digits(cell.substr(0, point), seconds) &&
                       std::cmp_less(seconds, most_utc_seconds) &&
                       read_digits(cell.substr(point + 1), fraction);
    return valid ? std::optional(microseconds(static_cast<int64_t>(seconds) * microseconds_per_second +
                                              static_cast<int64_t>(fraction)))
                 : std::nullopt;
}

} // namespace

void append_utc_cells(std::string &row, const std::optional<utc_time> &utc)
{
    if (!utc)
    {
        row += ",,";
        return;
    }
    const auto exact = utc->moment.time_since_epoch();
    const auto rounded = std::chrono::round<microseconds>(exact);
    append_seconds(row, rounded);
    append_seconds(row, std::chrono::ceil<microseconds>(utc->bound + std::chrono::abs(exact - rounded)));
}

bool read_utc_cells(std::string_view seconds, std::string_view bound, std::optional<utc_time> &utc)
{
    utc.reset();
    if (seconds.empty() && bound.empty())
    {
        return true;
    }
    const bool negative = seconds.starts_with('-');
    const auto span = read_seconds(seconds.substr(negative ? 1 : 0));
    const auto most = read_seconds(bound);
    if (!span || !most)
    {
        return false;
    }
    utc = utc_time{.moment = std::chrono::sys_time<microseconds>(negative ? -*span : *span), .bound = *most};
    return true;
}

} // namespace vantor
