/** @file
 * When frames are measured.
 *
 * Without a frame rate a frame starts when it is asked for. With one the sensor's frame timer sets the
 * starts, at start + k period, and a frame that is asked for too late is a delayed one. With double buffering
 * the sensor measures the next frame on time by itself, so that it is not delayed before a whole period has
 * been missed.
 */
#ifndef ZET_SIMULATOR_SCHEDULE_H
#define ZET_SIMULATOR_SCHEDULE_H

#include "sensor_library/program.h"

namespace zet_simulator
{

/** The sensor's frame timer: frame k is due at start + k period. */
struct frame_grid
{
    bool running;
    uint64_t start_us;
    double period_us;
    uint64_t next_index; /**< k of the frame that is measured next */
};

/** A frame that is being measured, or has been and waits to be read. */
struct measured_frame
{
    uint64_t start_us;
    uint64_t done_us;
    uint64_t read_deadline_us; /**< a later read delays the next frame */
    uint32_t number;
    bool delayed;
};

/** Frames that the sensor can hold: two with double buffering. */
constexpr uint32_t frame_slots = 2;

/**
 * Sets the times of the frame that is asked for now.
 *
 * @param grid   the sensor's frame timer; runs on over prepares as long as the frame rate stays the same
 * @param frame  receives start, end, read deadline and whether it is late
 */
void schedule_frame(const measurement_program &program, frame_grid &grid, measured_frame &frame);

} // namespace zet_simulator

#endif
