/** @file
 * When frames are measured.
 *
 * Without a frame rate a frame starts when it is requested. With a frame rate frames start at the times of
 * the sensor's frame timer, start + k period, and a frame that is requested too late is delayed. With double
 * buffering the sensor starts the next frame on time without a request, so a frame is delayed only after a
 * full period has been missed.
 */
#ifndef ZET_SIMULATOR_SCHEDULE_H
#define ZET_SIMULATOR_SCHEDULE_H

#include "board/board.h"
#include "sensor_library/program.h"

namespace zet_simulator
{

/** The sensor's frame timer: frame k is due at start + k period. */
struct frame_grid
{
    bool running;
    instant start;
    double period_us;
    uint64_t next_index; /**< k of the next frame */
};

/** A frame that is being measured or waits to be read. */
struct measured_frame
{
    double moment_us; /**< start, for what the sensor sees: on the ideal clock if the frame is on time */
    instant done;
    uint64_t read_deadline_us; /**< a later read delays the next frame */
    uint32_t number;
    bool delayed;
};

/** Frames that the sensor can store: two with double buffering. */
constexpr uint32_t frame_slots = 2;

/**
 * Sets the times of a frame that is requested now, in a session whose scene has started.
 *
 * With a frame rate, frames on time are measured at moments of the ideal clock, so that they do not depend on
 * how long the board computes; all others at moments of the board's clock.
 *
 * @param grid   the sensor's frame timer; keeps running over prepares while the frame rate stays the same
 * @param frame  receives moment, end, read deadline and whether it is late
 * @return the number of times of the frame timer that pass without a frame, because this one is late
 */
uint64_t schedule_frame(const measurement_program &program, frame_grid &grid, measured_frame &frame);

} // namespace zet_simulator

#endif
