/** @file
 * An axis of time in UTC that the pictures of several boards share.
 */
#include "plot/shared_axis.h"

#include <algorithm>

#include "recording/utc_text.h"

namespace vantor
{
namespace
{

/** A span in seconds. */
double seconds_of(std::chrono::nanoseconds span)
{
    return std::chrono::duration<double>(span).count();
}

} // namespace

time_figures read_times(const recording_reader &recording, size_t item,
                        const std::function<void(uint64_t)> &on_row)
{
    time_figures times;
    auto table = recording.open_table(item);
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        times.add(table.require());
        on_row(number + 1);
    }
    return times;
}

std::optional<shared_axis> find_shared_axis(const std::vector<time_figures> &times)
{
    auto first = std::chrono::sys_time<std::chrono::nanoseconds>::max();
    auto last = std::chrono::sys_time<std::chrono::nanoseconds>::min();
    for (const auto &board : times)
    {
        if (board.first)
        {
            first = std::min(first, board.first->utc.moment);
            last = std::max(last, board.last->utc.moment);
        }
    }
    return first > last ? std::nullopt
                        : std::optional(shared_axis{.start = first, .length = seconds_of(last - first)});
}

time_window window_of(const shared_axis &axis, const time_figures &times)
{
    const double zero = times.first->seconds - seconds_of(times.first->utc.moment - axis.start);
    const auto date_and_time = exact_utc_text(axis.start);
    return {
        .begin = zero, .end = zero + axis.length, .start = date_and_time.substr(date_and_time.find('T') + 1)};
}

} // namespace vantor
