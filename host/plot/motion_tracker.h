/** @file
 * Follows the strongest moving echo from frame to frame.
 */
#ifndef VANTOR_MOTION_TRACKER_H
#define VANTOR_MOTION_TRACKER_H

#include <complex>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "vantor/item_statistics.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** The velocity of an echo in a short interval, in m/s; positive values move away. */
struct echo_velocity
{
    double from_distance = 0.0; /**< the slope of its distance over time: never ambiguous, but not exact */
    double from_phase = 0.0;    /**< from the turn of its phase between sweeps: ambiguous; 0 with one sweep */
};

/** Where the strongest moving echo was found, and how fast it was. */
struct echo_motion
{
    double nearest = 0.0;                 /**< in metres */
    double farthest = 0.0;                /**< in metres */
    std::optional<echo_velocity> fastest; /**< where its distance changed fastest, if that is known */
};

/** A velocity that the pictures of velocities do not show as it is. */
struct aliased_velocity
{
    double velocity = 0.0;            /**< in m/s */
    double bound = 0.0;               /**< velocities are ambiguous beyond it */
    std::optional<double> shown = {}; /**< instead, between sweeps; nothing: it is ambiguous between frames */
};

/**
 * Finds out from the change of the distance whether a velocity between sweeps is aliased.
 *
 * @param bound  of velocities that are not ambiguous, in m/s
 * @return nothing if it is not, or if the velocity is unknown
 */
std::optional<aliased_velocity> find_alias(const echo_motion &motion, double bound);

/** Where an echo was in a frame. */
struct echo_position
{
    double seconds = 0.0;
    double distance = 0.0;     /**< in metres */
    double width = 0.0;        /**< of the pulse there, in metres */
    std::complex<double> turn; /**< its argument is the turn of the phase from sweep to sweep */
};

/** A part of the path of an echo in which its velocity hardly changes. */
class path_part
{
public:
    /** Adds a position. */
    void add(const echo_position &position);

    /** Number of positions. */
    [[nodiscard]] double count() const noexcept
    {
        return count_;
    }

    /** Whether the echo has moved by the width of the pulse, so that the slope is known if there is one. */
    [[nodiscard]] bool complete() const noexcept
    {
        return complete_;
    }

    /** The slope in m/s of the line on which the positions lie; nothing if they do not. */
    [[nodiscard]] std::optional<double> slope() const;

    /** The sum of the turns. */
    [[nodiscard]] std::complex<double> turn() const noexcept
    {
        return turn_;
    }

private:
    std::optional<echo_position> first_;
    bool complete_ = false;
    std::complex<double> turn_;
    double count_ = 0.0;
    double t_ = 0.0; /**< sums of times and distances since the first position, and of their products */
    double d_ = 0.0;
    double tt_ = 0.0;
    double td_ = 0.0;
    double dd_ = 0.0;
};

/**
 * Joins the positions of the strongest moving echo to paths. A path goes on where the echo is found within
 * the width of the pulse, or where three positions lie on a line: an echo that is the strongest one for a
 * moment does not belong to it. Memory does not grow with the number of positions.
 */
class path_follower
{
public:
    /** @param turns_per_second  sweeps per second; 0 if the turns are not known */
    explicit path_follower(double turns_per_second) : turns_per_second_(turns_per_second)
    {
    }

    /** Adds the position in the next frame; nothing if no moving echo is above the noise. */
    void add(const std::optional<echo_position> &position);

    /** Ends the path at a gap. */
    void interrupt();

    /** The range of all paths in which the echo moves by more than half of the width of the pulse. */
    [[nodiscard]] std::optional<echo_motion> finish();

private:
    /** The path so far. */
    struct path
    {
        double nearest = 0.0;
        double farthest = 0.0;
        double width = 0.0;
        size_t count = 0;
    };

    [[nodiscard]] bool goes_on(const echo_position &position) const;
    [[nodiscard]] bool lies_on_line(const echo_position &position) const;
    void extend(const echo_position &position);
    void end_path();

    double turns_per_second_;
    std::optional<echo_motion> found_;
    std::optional<echo_velocity> fastest_; /**< in the path */
    path path_;
    path_part part_;
    std::optional<echo_position> last_;
    std::optional<echo_position> last_but_one_;
    size_t missed_ = 0; /**< frames without a position since the last one */
};

/**
 * Finds the strongest moving echo in frames: what remains without the mean sample of each point. An echo that
 * moves so slowly that this mean contains it is found where it is instead, if no stronger one rests.
 */
class motion_tracker
{
public:
    /**
     * @param item    the item
     * @param means   mean sample of each point; must live longer
     * @param around  noise in each sub-sweep; must live longer
     */
    motion_tracker(const recorded_item &item, const std::vector<std::complex<double>> &means,
                   const std::vector<background> &around);

    /**
     * Adds a frame.
     *
     * @param seconds  when it began
     * @param samples  its samples, sweep after sweep
     */
    void add(double seconds, std::span<const sample> samples);

    /** There is a gap. */
    void interrupt()
    {
        follower_.interrupt();
    }

    /** How the echo moves; nothing if none does. */
    [[nodiscard]] std::optional<echo_motion> finish();

private:
    /** What rests: a sample for each point. */
    using resting = std::vector<std::complex<double>>;

    [[nodiscard]] std::optional<echo_position> find(double seconds, std::span<const sample> samples,
                                                    const resting &rest);
    [[nodiscard]] double middle_level(size_t subsweep) const;
    [[nodiscard]] std::complex<double> turn_at(size_t point, std::span<const sample> samples,
                                               const resting &rest) const;
    void add_slow(const echo_position &position);

    const recorded_item &item_;
    const resting &means_;
    resting nothing_;
    const std::vector<background> &around_;
    std::vector<double> levels_;
    double sweep_rate_; /**< 0 if a frame has one sweep */
    path_follower follower_;
    path_part slow_; /**< of the strongest echo, with what rests */
    double slow_nearest_ = 0.0;
    double slow_farthest_ = 0.0;
    double slow_width_ = 0.0; /**< of the pulse */
};

} // namespace vantor

#endif
