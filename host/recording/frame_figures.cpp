/** @file
 * What the frame table of an item shows in total.
 */
#include "recording/frame_figures.h"

#include <algorithm>

namespace vantor
{

void channel_figures::add(const frame_row &row)
{
    if (row.data_valid)
    {
        ++(*row.data_valid ? valid : invalid);
    }
    detected += row.cca_detected.value_or(false) ? 1U : 0U;
    if (row.cca_value)
    {
        ++values;
        lowest = std::min(lowest, *row.cca_value);
        highest = std::max(highest, *row.cca_value);
        sum += *row.cca_value;
    }
}

void time_figures::add(const frame_row &row)
{
    if (!row.utc)
    {
        ++unknown;
        return;
    }
    last = dated_moment{.seconds = row.seconds, .utc = *row.utc};
    first = first ? first : last;
    largest_bound = std::max(largest_bound, row.utc->bound);
}

void frame_figures::add(const frame_row &row)
{
    seconds = row.seconds;
    saturated += row.data_saturated ? 1U : 0U;
    delayed += row.frame_delayed ? 1U : 0U;
    calibration_needed += row.calibration_needed ? 1U : 0U;
    lowest_temperature = std::min(lowest_temperature, row.temperature);
    highest_temperature = std::max(highest_temperature, row.temperature);
    channel.add(row);
    times.add(row);
}

} // namespace vantor
