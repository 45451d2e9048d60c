/** @file
 * Computes phase and velocity of an item.
 */
#include "plot/point_analysis.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

#include "plot/frame_rows.h"
#include "plot/sensor_scale.h"
#include "plot/spectrum.h"

namespace vantor
{
namespace
{

/** Maximum number of phases, so that the files for long recordings stay small. */
constexpr uint64_t most_phases = 4000;

/** Minimum number of sweeps in a frame for a velocity spectrum, and for a map. */
constexpr size_t fewest_sweeps = 16;
constexpr size_t fewest_sweeps_of_map = 4;

/** Minimum number of frames for a velocity spectrum. */
constexpr uint64_t fewest_frames = 16;

/** Maximum length of a segment of a spectrum, and of a map. */
constexpr size_t longest_segment = 512;
constexpr size_t longest_segment_of_map = 128;

/** A phase, or a peak of a spectrum, is certain if its amplitude is this much higher than the noise. */
constexpr double certain = 4.0;

/** The maximum number of consecutive valid frames. */
uint64_t longest_run(const recording_reader &recording, size_t index)
{
    frame_rows rows(recording, index);
    uint64_t longest = 0;
    uint64_t run = 0;
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        rows.advance();
        run = rows.valid() ? run + 1 : 0;
        longest = std::max(longest, run);
    }
    return longest;
}

/** Follows the phase of one point over the frames. */
class phase_follower
{
public:
    /** @param least  amplitude from which a phase is certain */
    explicit phase_follower(double least) : least_(least)
    {
    }

    /** Adds the mean of a frame's sweeps; returns the unwrapped phase in radians. */
    double add(std::complex<double> value, bool saturated)
    {
        constexpr double turn = 2.0 * std::numbers::pi;
        const bool is_certain = std::abs(value) > least_ && !saturated;
        const double phase = std::arg(value);
        const double step = started_ ? std::remainder(phase - last_, turn) : phase;
        turned_ += step;
        if (started_ && is_certain && was_certain_)
        {
            ++steps_;
            wide_steps_ += std::fabs(step) > turn / 4.0 ? 1 : 0;
        }
        started_ = true;
        was_certain_ = is_certain;
        last_ = phase;
        return turned_;
    }

    /** A frame is missing. */
    void skip()
    {
        was_certain_ = false;
    }

    /** Whether the phase often turns by more than a quarter turn, so that half a turn is probable, too. */
    [[nodiscard]] bool is_ambiguous() const
    {
        return wide_steps_ * 20 > steps_;
    }

private:
    double least_;
    bool started_ = false;
    bool was_certain_ = false;
    double last_ = 0.0;
    double turned_ = 0.0;
    uint64_t steps_ = 0; /**< between certain phases of consecutive frames */
    uint64_t wide_steps_ = 0;
};

/** The velocities of a spectrum. */
std::vector<double> spectrum_velocities(size_t length, double rate)
{
    std::vector<double> velocities;
    const size_t centre = length / 2;
    for (size_t k = 0; k < length; ++k)
    {
        const auto offset = static_cast<double>(k) - static_cast<double>(centre);
        velocities.push_back(2.0 * velocity_bound(rate) * offset / static_cast<double>(length));
    }
    return velocities;
}

/** Splits a series of samples into segments for a spectrum. */
class spectrum_feeder
{
public:
    spectrum_feeder(size_t length, spectrum_mean mean)
        : result_(std::max<size_t>(length, 1), mean), length_(length)
    {
    }

    /** Adds a sample. */
    void add(std::complex<double> value)
    {
        segment_.push_back(value);
        if (segment_.size() == length_)
        {
            result_.add(segment_);
            segment_.clear();
        }
    }

    /** Begins a new segment. */
    void restart()
    {
        segment_.clear();
    }

    /** The level of tones at each frequency, in dBFS; empty without a complete segment. */
    [[nodiscard]] std::vector<double> levels() const
    {
        std::vector<double> levels;
        if (result_.count() > 0)
        {
            for (const double power : result_.powers())
            {
                levels.push_back(dbfs(std::sqrt(power / result_.tone_power())));
            }
        }
        return levels;
    }

    /** The level of noise, in dBFS; NaN if its RMS amplitude is unknown. */
    [[nodiscard]] double floor(double rms) const
    {
        return std::isnan(rms) ? rms : dbfs(rms * std::sqrt(result_.noise_power() / result_.tone_power()));
    }

private:
    spectrum result_;
    size_t length_;
    std::vector<std::complex<double>> segment_;
};

/** Collects the sweeps of all points for the velocity map. */
class map_feeder
{
public:
    explicit map_feeder(const item_layout &layout) : sweep_length_(layout.sweep_length)
    {
        if (layout.sweeps() >= fewest_sweeps_of_map)
        {
            const auto length = std::min(layout.sweeps(), longest_segment_of_map);
            points_.assign(sweep_length_, spectrum_feeder(length, spectrum_mean::keep));
        }
    }

    /** Adds a frame. */
    void add(const std::vector<sample> &samples)
    {
        for (size_t point = 0; point < points_.size(); ++point)
        {
            points_[point].restart();
            for (auto place = point; place < samples.size(); place += sweep_length_)
            {
                points_[point].add(std::complex<double>(samples[place]));
            }
        }
    }

    /** The map; the RMS amplitude of the noise is that of the sub-sweep with the least noise. */
    [[nodiscard]] velocity_map finish(double rate, double noise) const
    {
        velocity_map map;
        map.floor = points_.empty() ? noise : points_.front().floor(noise);
        for (size_t point = 0; point < points_.size(); ++point)
        {
            const auto levels = points_[point].levels();
            map.levels.resize(levels.size());
            for (size_t k = 0; k < levels.size(); ++k)
            {
                map.levels[k].push_back(levels[k]);
            }
        }
        map.velocities = spectrum_velocities(map.levels.size(), rate);
        return map;
    }

private:
    size_t sweep_length_;
    std::vector<spectrum_feeder> points_;
};

/** Collects the samples of a point: for the spectrum and the track. */
class point_feeder
{
public:
    point_feeder(const recorded_item &item, uint64_t frames, uint64_t valid_run, item_analysis &analysis)
        : analysis_(analysis), layout_(item.layout), between_frames_(layout_.sweeps() < fewest_sweeps),
          noise_(analysis.around.at(subsweep_of(item, analysis.point)).noise),
          frame_noise_(noise_ / std::sqrt(static_cast<double>(std::max<size_t>(layout_.sweeps(), 1)))),
          spectrum_(segment_length(valid_run), between_frames_ ? spectrum_mean::remove : spectrum_mean::keep),
          follower_(std::isnan(noise_) ? 0.0 : certain * frame_noise_),
          phase_step_((frames + most_phases - 1) / most_phases)
    {
    }

    /** Adds a valid frame. */
    void add(uint64_t number, const frame_rows &row, const std::vector<sample> &samples)
    {
        const auto mean = add_sweeps(samples);
        const double phase = follower_.add(mean, row.saturated());
        between_frames_ ? spectrum_.add(mean) : spectrum_.restart();
        saturated_ = saturated_ || row.saturated();
        if (number % phase_step_ == 0)
        {
            analysis_.track.push_back({.seconds = row.seconds(), .phase = phase, .saturated = saturated_});
            saturated_ = false;
        }
    }

    /** A frame is not valid. */
    void skip(const frame_rows &row)
    {
        follower_.skip();
        spectrum_.restart();
        auto &track = analysis_.track;
        if (!track.empty() && !std::isnan(track.back().phase))
        {
            track.push_back({.seconds = row.seconds(), .phase = std::numeric_limits<double>::quiet_NaN()});
        }
    }

    /** Completes the figures. */
    void finish(double rate_of_sweeps)
    {
        auto &result = analysis_.spectrum;
        result.between_frames = between_frames_;
        result.rate = between_frames_ ? analysis_.frame_rate : rate_of_sweeps;
        result.floor = spectrum_.floor(between_frames_ ? frame_noise_ : noise_);
        if (result.rate > 0.0)
        {
            result.levels = spectrum_.levels();
            result.velocities = spectrum_velocities(result.levels.size(), result.rate);
        }
        analysis_.aliased = is_aliased();
    }

private:
    /** Number of samples in a segment of the spectrum; 0 if there are too few. */
    [[nodiscard]] size_t segment_length(uint64_t valid_run) const
    {
        const uint64_t usable = valid_run < fewest_frames ? 0 : valid_run;
        return std::min<size_t>(between_frames_ ? usable : layout_.sweeps(), longest_segment);
    }

    /** Adds the sweeps of a frame to the spectrum, unless it is between frames; returns their mean. */
    std::complex<double> add_sweeps(const std::vector<sample> &samples)
    {
        std::complex<double> sum;
        for (auto place = analysis_.point; place < samples.size(); place += layout_.sweep_length)
        {
            sum += std::complex<double>(samples[place]);
            between_frames_
                ? void()
                : spectrum_.add(std::complex<double>(samples[place]) - analysis_.mean[analysis_.point]);
        }
        return sum / static_cast<double>(std::max<size_t>(layout_.sweeps(), 1));
    }

    /** Whether an echo moves too fast for the frame rate. */
    [[nodiscard]] bool is_aliased() const
    {
        const double bound = velocity_bound(analysis_.frame_rate);
        if (!(bound > 0.0) || !analysis_.above_noise)
        {
            return false;
        }
        return follower_.is_ambiguous() || motion_speed() > bound || spectrum_speed() > bound;
    }

    /** The mean speed of the strongest echo between its extremes; 0 if it does not move. */
    [[nodiscard]] double motion_speed() const
    {
        const auto &motion = analysis_.motion;
        return motion ? std::fabs(motion->to.distance - motion->from.distance) /
                            (motion->to.seconds - motion->from.seconds)
                      : 0.0;
    }

    /** The speed at the highest peak of a spectrum between sweeps; 0 if it is not certain. */
    [[nodiscard]] double spectrum_speed() const
    {
        const auto &result = analysis_.spectrum;
        const auto peak = std::max_element(result.levels.begin(), result.levels.end());
        if (between_frames_ || peak == result.levels.end() ||
            !(*peak > result.floor + 20.0 * std::log10(certain)))
        {
            return 0.0;
        }
        return std::fabs(result.velocities[static_cast<size_t>(peak - result.levels.begin())]);
    }

    item_analysis &analysis_;
    const item_layout &layout_;
    bool between_frames_;
    double noise_;       /**< RMS amplitude in a sweep */
    double frame_noise_; /**< RMS amplitude in the mean of a frame's sweeps */
    spectrum_feeder spectrum_;
    phase_follower follower_;
    uint64_t phase_step_;
    bool saturated_ = false; /**< since the last point of the track */
};

} // namespace

void analyse_point(recording_reader &recording, size_t index, item_analysis &analysis)
{
    const auto &item = recording.items()[index];
    point_feeder point(item, recording.frames(), longest_run(recording, index), analysis);
    map_feeder map(item.layout);
    frame_rows rows(recording, index);
    std::vector<sample> samples;
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        recording.read_frame(index, number, samples);
        rows.advance();
        if (rows.valid())
        {
            point.add(number, rows, samples);
            map.add(samples);
        }
        else
        {
            point.skip(rows);
        }
    }
    point.finish(sweep_rate(item));
    const auto quieter = [](const auto &a, const auto &b) { return a.noise < b.noise; };
    const auto quietest = std::min_element(analysis.around.begin(), analysis.around.end(), quieter);
    analysis.velocities = map.finish(sweep_rate(item), quietest->noise);
}

} // namespace vantor
