/** @file
 * Follows the strongest moving echo from frame to frame.
 */
#include "plot/motion_tracker.h"

#include <algorithm>
#include <cmath>

#include "plot/echo_search.h"
#include "plot/sensor_scale.h"

namespace vantor
{
namespace
{

/** Minimum number of positions of a path, and of a part whose slope is known. */
constexpr size_t fewest_positions = 3;
constexpr double fewest_for_slope = 4.0;

/** Maximum number of frames in a path without a position. */
constexpr size_t most_missed = 4;

/** A part of a path is straight if the RMS distance from a line is this small, relative to its length. */
constexpr double straight = 0.1;

} // namespace

std::optional<aliased_velocity> find_alias(const echo_motion &motion, double bound)
{
    // The slope is not exact.
    constexpr double least = 0.9;
    if (!motion.fastest || !(bound > 0.0) || std::fabs(motion.fastest->from_distance) < least * bound)
    {
        return std::nullopt;
    }
    const auto [slope, shown] = *motion.fastest;
    const double cycles = std::round((slope - shown) / (2.0 * bound));
    const double exact = shown + 2.0 * bound * cycles;
    const bool clear = std::fabs(exact - slope) < bound / 2.0;
    return cycles == 0.0 ? std::nullopt
                         : std::optional(aliased_velocity{clear ? exact : slope, bound, shown});
}

void path_part::add(const echo_position &position)
{
    if (!first_)
    {
        first_ = position;
    }
    const double t = position.seconds - first_->seconds;
    const double d = position.distance - first_->distance;
    turn_ += position.turn;
    count_ += 1.0;
    t_ += t;
    d_ += d;
    tt_ += t * t;
    td_ += t * d;
    dd_ += d * d;
    complete_ = std::fabs(d) >= position.width && count_ >= fewest_for_slope;
}

std::optional<double> path_part::slope() const
{
    const double tt = tt_ - t_ * t_ / count_;
    const double td = td_ - t_ * d_ / count_;
    const double dd = dd_ - d_ * d_ / count_;
    if (!(tt > 0.0))
    {
        return std::nullopt;
    }
    const double length = std::fabs(td / tt) * std::sqrt(12.0 * tt / count_);
    const double away = std::sqrt(std::max(dd - td * td / tt, 0.0) / count_);
    return away <= straight * length ? std::optional(td / tt) : std::nullopt;
}

void path_follower::add(const std::optional<echo_position> &position)
{
    if (!position)
    {
        ++missed_;
        if (missed_ > most_missed)
        {
            interrupt();
        }
        return;
    }
    if (!goes_on(*position))
    {
        end_path();
        if (lies_on_line(*position))
        {
            extend(*last_but_one_);
            extend(*last_);
        }
    }
    extend(*position);
    last_but_one_ = missed_ == 0 ? last_ : std::nullopt;
    last_ = position;
    missed_ = 0;
}

void path_follower::interrupt()
{
    end_path();
    last_.reset();
    last_but_one_.reset();
    missed_ = 0;
}

/** Whether the path goes on at a position. */
bool path_follower::goes_on(const echo_position &position) const
{
    const bool near = last_ && std::fabs(position.distance - last_->distance) <=
                                   static_cast<double>(missed_ + 1) * std::max(position.width, last_->width);
    return near || (path_.count >= fewest_positions && lies_on_line(position));
}

/** Whether the last two positions and this one, of consecutive frames, lie on a line. */
bool path_follower::lies_on_line(const echo_position &position) const
{
    if (!last_but_one_ || missed_ > 0)
    {
        return false;
    }
    const double before = last_->distance - last_but_one_->distance;
    const double now = position.distance - last_->distance;
    return std::fabs(now - before) <= position.width / 2.0;
}

/** Adds a position to the path. */
void path_follower::extend(const echo_position &position)
{
    path_.nearest = path_.count == 0 ? position.distance : std::min(path_.nearest, position.distance);
    path_.farthest = path_.count == 0 ? position.distance : std::max(path_.farthest, position.distance);
    path_.width = std::max(path_.width, position.width);
    ++path_.count;
    part_.add(position);
    const auto slope = part_.complete() ? part_.slope() : std::nullopt;
    if (slope && (!fastest_ || std::fabs(*slope) > std::fabs(fastest_->from_distance)))
    {
        fastest_ = {.from_distance = *slope,
                    .from_phase = std::arg(part_.turn()) * metres_per_radian() * turns_per_second_};
    }
    if (part_.complete())
    {
        part_ = {};
    }
}

/** Ends the path, and notes it if the echo moved. */
void path_follower::end_path()
{
    if (path_.count >= fewest_positions && path_.farthest - path_.nearest > path_.width / 2.0)
    {
        auto &motion = found_ ? *found_ : found_.emplace(echo_motion{path_.nearest, path_.farthest, {}});
        motion.nearest = std::min(motion.nearest, path_.nearest);
        motion.farthest = std::max(motion.farthest, path_.farthest);
        const auto speed = [](const auto &velocity) {
            return velocity ? std::fabs(velocity->from_distance) : 0.0;
        };
        motion.fastest = speed(fastest_) > speed(motion.fastest) ? fastest_ : motion.fastest;
    }
    path_ = {};
    part_ = {};
    fastest_.reset();
}

std::optional<echo_motion> path_follower::finish()
{
    end_path();
    return found_;
}

motion_tracker::motion_tracker(const recorded_item &item, const std::vector<std::complex<double>> &means,
                               const std::vector<background> &around)
    : item_(item), means_(means), nothing_(means.size()), around_(around), levels_(item.layout.sweep_length),
      sweep_rate_(item.layout.sweeps() > 1 ? sweep_rate(item) : 0.0), follower_(sweep_rate_)
{
}

void motion_tracker::add(double seconds, std::span<const sample> samples)
{
    follower_.add(find(seconds, samples, means_));
    if (const auto position = find(seconds, samples, nothing_))
    {
        add_slow(*position);
    }
}

/** Adds a position of the strongest echo, whether it moves or not. */
void motion_tracker::add_slow(const echo_position &position)
{
    const bool is_first = slow_.count() == 0.0;
    slow_nearest_ = is_first ? position.distance : std::min(slow_nearest_, position.distance);
    slow_farthest_ = is_first ? position.distance : std::max(slow_farthest_, position.distance);
    slow_width_ = std::max(slow_width_, position.width);
    slow_.add(position);
}

std::optional<echo_motion> motion_tracker::finish()
{
    const auto found = follower_.finish();
    const bool moves =
        slow_.count() >= fewest_for_slope && slow_farthest_ - slow_nearest_ > slow_width_ / 10.0;
    const auto slope = moves ? slow_.slope() : std::nullopt;
    if (!slope || (found && found->fastest))
    {
        return found;
    }
    return echo_motion{
        .nearest = slow_nearest_,
        .farthest = slow_farthest_,
        .fastest = echo_velocity{.from_distance = *slope,
                                 .from_phase = std::arg(slow_.turn()) * metres_per_radian() * sweep_rate_}};
}

/** The strongest echo of a frame without what rests, if it is above the noise. */
std::optional<echo_position> motion_tracker::find(double seconds, std::span<const sample> samples,
                                                  const resting &rest)
{
    const size_t length = levels_.size();
    std::fill(levels_.begin(), levels_.end(), 0.0);
    for (size_t place = 0; place < samples.size(); place += length)
    {
        for (size_t point = 0; point < std::min(length, samples.size() - place); ++point)
        {
            levels_[point] += magnitude(std::complex<double>(samples[place + point]) - rest[point]);
        }
    }
    const auto sweeps = item_.layout.sweeps();
    for (auto &level : levels_)
    {
        level /= static_cast<double>(std::max<size_t>(sweeps, 1));
    }
    const auto point = strongest_echo(item_, levels_);
    if (!point)
    {
        return std::nullopt;
    }
    const auto subsweep = subsweep_of(item_, *point);
    // Another transmitter raises the level at all points for a while.
    const background least{.noise = around_[subsweep].noise};
    const background here{.noise = 0.0, .offset = middle_level(subsweep)};
    if (!is_echo(levels_[*point], least, sweeps) || !is_echo(levels_[*point], here, sweeps))
    {
        return std::nullopt;
    }
    return echo_position{.seconds = seconds,
                         .distance = echo_distance(item_, levels_, *point),
                         .width = pulse_width(item_, subsweep),
                         .turn = turn_at(*point, samples, rest)};
}

/** The median of the levels in a sub-sweep. */
double motion_tracker::middle_level(size_t subsweep) const
{
    const auto &place = item_.layout.subsweeps[subsweep];
    const auto first = levels_.begin() + static_cast<ptrdiff_t>(place.offset);
    std::vector<double> levels(first, first + static_cast<ptrdiff_t>(place.length));
    const auto middle = levels.begin() + static_cast<ptrdiff_t>(place.length / 2);
    std::nth_element(levels.begin(), middle, levels.end());
    return *middle;
}

/** The sum of the turns of the phase at a point, from sweep to sweep. */
std::complex<double> motion_tracker::turn_at(size_t point, std::span<const sample> samples,
                                             const resting &rest) const
{
    std::complex<double> sum;
    for (size_t place = point + levels_.size(); place < samples.size(); place += levels_.size())
    {
        const auto before = std::complex<double>(samples[place - levels_.size()]) - rest[point];
        const auto now = std::complex<double>(samples[place]) - rest[point];
        sum += now * std::conj(before);
    }
    return sum;
}

} // namespace vantor
