/** @file
 * The sensor's frame timer.
 */
#include "sensor_library/schedule.h"

#include <cmath>

#include "board/board.h"

namespace
{

using namespace zet_simulator;

/** Returns the time at which a frame of a grid is due. */
uint64_t due_us(const frame_grid &grid, uint64_t index)
{
    return grid.start_us + static_cast<uint64_t>(static_cast<double>(index) * grid.period_us);
}

/** Starts the frame timer unless it already runs at this rate. */
void start_grid(frame_grid &grid, double period_us, uint64_t now_us)
{
    if (!grid.running || grid.period_us != period_us)
    {
        grid = {true, now_us, period_us, 0};
    }
}

/** Sets when a frame of a paced sensor starts, and whether it is late; returns the number of frames left out.
 */
uint64_t place_paced_frame(const measurement_program &program, frame_grid &grid, measured_frame &frame,
                           uint64_t now_us)
{
    start_grid(grid, program.timing.frame_period_us, now_us);
    const uint64_t due = due_us(grid, grid.next_index);
    const uint64_t grace_us = program.double_buffering ? static_cast<uint64_t>(grid.period_us) : 0U;
    frame.delayed = now_us > due + grace_us;
    frame.start_us = frame.delayed && !program.double_buffering ? now_us : due;
    const uint64_t following_index = ++grid.next_index;
    if (frame.delayed)
    {
        grid.next_index =
            static_cast<uint64_t>(static_cast<double>(now_us - grid.start_us) / grid.period_us) + 1U;
    }
    frame.read_deadline_us = due_us(grid, grid.next_index) + grace_us;
    return grid.next_index - following_index;
}

} // namespace

namespace zet_simulator
{

uint64_t schedule_frame(const measurement_program &program, frame_grid &grid, measured_frame &frame)
{
    uint64_t left_out = 0;
    const uint64_t now_us = board_now_us();
    frame.start_us = now_us;
    frame.read_deadline_us = UINT64_MAX;
    frame.delayed = false;
    if (program.timing.frame_period_us > 0.0)
    {
        left_out = place_paced_frame(program, grid, frame, now_us);
    }
    frame.done_us = frame.start_us + static_cast<uint64_t>(std::llround(program.timing.frame_us));
    return left_out;
}

} // namespace zet_simulator
