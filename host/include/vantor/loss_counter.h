/** @file
 * Counts the frames that are missing from a stream.
 */
#ifndef VANTOR_LOSS_COUNTER_H
#define VANTOR_LOSS_COUNTER_H

#include <cstdint>

namespace vantor
{

/**
 * Counts the frames that are missing from a stream, from the ticks of those that arrived.
 *
 * Frames are due on a grid, one period apart, and are measured when they are due or later. The counter
 * follows the grid by the frames that are least late, so that neither late frames nor a clock that is off by
 * up to 0.02 % change the count, as long as a gap is shorter than 0.05 periods divided by that. A gap whose
 * last frame was late by nearly a period can be counted one too large until the stream has caught up. It
 * cannot see gaps of 2^32 ticks or more, because ticks wrap around, nor frames that are missing after the
 * last one.
 */
class loss_counter
{
public:
    /**
     * @param period  ticks between two frames, also with a fraction; 0 if unknown. 2^31 ticks or more count
     * as unknown, because ticks wrap around before two frames.
     */
    explicit loss_counter(double period) noexcept;

    /**
     * Adds a frame that arrived.
     *
     * @param tick     the tick of the frame
     * @param damaged  number of messages damaged since the previous frame, and of frames that were lost on
     *                 the way to the server; they count as missing if the period is unknown or no frame has
     *                 arrived before
     * @param delayed  whether the frame was measured later than it was due, frame_item::frame_delayed
     * @return the number of frames missing before this one since the start of the stream; one less than
     *         before if this frame shows that the one after the last gap was only late
     */
    uint64_t add(uint32_t tick, uint64_t damaged, bool delayed) noexcept;

private:
    [[nodiscard]] bool has_place_of_last_frame() const noexcept;
    void advance(bool delayed) noexcept;
    void follow_grid(bool delayed) noexcept;

    double period_;
    bool started_ = false;
    uint32_t last_tick_ = 0;
    double late_ = 0.0;  /**< ticks by which the last frame was later than its place on the grid */
    double moved_ = 0.0; /**< ticks by which the grid has become earlier since the last gap */
    int uncertain_ = 0;  /**< frames during which the last gap may still be one too large */
    uint64_t missing_ = 0;
};

} // namespace vantor

#endif
