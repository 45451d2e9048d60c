/** @file
 * The sensor's frame timer.
 */
#include "sensor_library/schedule.h"

#include <cmath>

namespace
{

using namespace zet_simulator;

/** Returns the time from the start of a grid to one of its frames. */
double offset_us(const frame_grid &grid, uint64_t index)
{
    return static_cast<double>(index) * grid.period_us;
}

/** Returns the time at which a frame of a grid is due, on the board's clock. */
uint64_t due_us(const frame_grid &grid, uint64_t index)
{
    return grid.start.clock_us + static_cast<uint64_t>(offset_us(grid, index));
}

/** Starts the frame timer unless it already runs at this rate. */
void start_grid(frame_grid &grid, double period_us, const instant &now)
{
    if (grid.running && grid.period_us == period_us)
    {
        return;
    }
    // More than a period is not the time for computing: the host has paused the session.
    const bool paused = static_cast<double>(now.clock_us) > static_cast<double>(now.ideal_us) + period_us;
    grid = {true, {now.clock_us, paused ? now.clock_us : now.ideal_us}, period_us, 0};
}

/** Sets the times of a frame that starts with a time of the frame timer. */
void place_on_grid(const frame_grid &grid, uint64_t index, uint64_t duration_us, measured_frame &frame)
{
    const double offset = offset_us(grid, index);
    const uint64_t end_us = static_cast<uint64_t>(offset) + duration_us;
    frame.moment_us = static_cast<double>(grid.start.ideal_us) + offset;
    frame.done = {grid.start.clock_us + end_us, grid.start.ideal_us + end_us};
}

/** Sets the times of a frame that starts now. */
void place_now(const instant &now, uint64_t duration_us, measured_frame &frame)
{
    frame.moment_us = static_cast<double>(now.clock_us);
    frame.done = {now.clock_us + duration_us, now.clock_us + duration_us};
}

/** Sets when a frame of a paced sensor starts, and whether it is late; returns the number of frames left out.
 */
uint64_t place_paced_frame(const measurement_program &program, frame_grid &grid, measured_frame &frame,
                           const instant &now, uint64_t duration_us)
{
    start_grid(grid, program.timing.frame_period_us, now);
    const uint64_t grace_us = program.double_buffering ? static_cast<uint64_t>(grid.period_us) : 0U;
    frame.delayed = now.clock_us > due_us(grid, grid.next_index) + grace_us;
    if (frame.delayed && !program.double_buffering)
    {
        place_now(now, duration_us, frame);
    }
    else
    {
        place_on_grid(grid, grid.next_index, duration_us, frame);
    }
    const uint64_t following_index = ++grid.next_index;
    if (frame.delayed)
    {
        const auto since_start_us = static_cast<double>(now.clock_us - grid.start.clock_us);
        grid.next_index = static_cast<uint64_t>(since_start_us / grid.period_us) + 1U;
    }
    frame.read_deadline_us = due_us(grid, grid.next_index) + grace_us;
    return grid.next_index - following_index;
}

} // namespace

namespace zet_simulator
{

uint64_t schedule_frame(const measurement_program &program, frame_grid &grid, measured_frame &frame)
{
    const instant now = board_now();
    const auto duration_us = static_cast<uint64_t>(std::llround(program.timing.frame_us));
    if (program.timing.frame_period_us > 0.0)
    {
        return place_paced_frame(program, grid, frame, now, duration_us);
    }
    frame.read_deadline_us = UINT64_MAX;
    frame.delayed = false;
    place_now(now, duration_us, frame);
    return 0;
}

} // namespace zet_simulator
