/** @file
 * Computes phase and velocity of an item.
 */
#include "plot/point_analysis.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

#include "plot/echo_search.h"
#include "plot/motion_tracker.h"
#include "plot/sensor_scale.h"
#include "plot/spectrum.h"
#include "plot/velocity_map_builder.h"
#include "vantor/plan.h"

namespace vantor
{
namespace
{

/** Maximum number of phases, so that the files for long recordings stay small. */
constexpr uint64_t most_phases = 4000;

/** Minimum number of frames for a velocity spectrum. */
constexpr uint64_t fewest_frames = 16;

/** Maximum length of a segment of a spectrum. */
constexpr size_t longest_segment = 512;

/** A phase, or a peak of a spectrum, is certain if its amplitude is this much higher than the noise. */
constexpr double certain = 4.0;

/** Follows the phase of one point over the frames. */
class phase_follower
{
public:
    /** @param least  amplitude from which a phase is certain */
    explicit phase_follower(double least) : least_(least)
    {
    }

    /** Adds the mean of a frame's sweeps; returns the unwrapped phase since the last gap, in radians. */
    double add(std::complex<double> value, bool saturated)
    {
        constexpr double turn = 2.0 * std::numbers::pi;
        const bool is_certain = std::abs(value) > least_ && !saturated;
        const double phase = std::arg(value);
        const double step = started_ ? std::remainder(phase - last_, turn) : 0.0;
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

    /** Begins again after a gap: nobody knows how far the phase turned meanwhile. */
    void restart()
    {
        started_ = false;
        turned_ = 0.0;
    }

    /** Whether the phase often turns by more than a quarter turn, so that half a turn is probable, too. */
    [[nodiscard]] bool is_ambiguous() const
    {
        return wide_steps_ * 20 > steps_;
    }

private:
    double least_;
    bool started_ = false; /**< there was a frame since the last gap */
    bool was_certain_ = false;
    double last_ = 0.0;
    double turned_ = 0.0;
    uint64_t steps_ = 0; /**< between certain phases of consecutive frames */
    uint64_t wide_steps_ = 0;
};

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

    /** Number of complete segments. */
    [[nodiscard]] size_t segments() const noexcept
    {
        return result_.count();
    }

    /** Number of samples in a segment. */
    [[nodiscard]] size_t length() const noexcept
    {
        return length_;
    }

    /** The level of tones at each frequency, in dBFS; empty without a complete segment. */
    [[nodiscard]] std::vector<double> levels() const
    {
        std::vector<double> levels;
        if (result_.count() > 0)
        {
            for (const double power : result_.powers())
            {
                levels.push_back(dbfs(result_.tone_amplitude(power)));
            }
        }
        return levels;
    }

    /** The level of noise, in dBFS; NaN if its RMS amplitude is unknown. */
    [[nodiscard]] double floor(double rms) const
    {
        return dbfs(result_.noise_amplitude(rms));
    }

private:
    spectrum result_;
    size_t length_;
    std::vector<std::complex<double>> segment_;
};

/** Collects the samples of a point: for the spectrum and the track. */
class point_feeder
{
public:
    point_feeder(const recorded_item &item, uint64_t frames, uint64_t valid_run, item_analysis &analysis)
        : analysis_(analysis), layout_(item.layout),
          between_frames_(layout_.sweeps() < fewest_sweeps_of_spectrum),
          background_(analysis.around.at(subsweep_of(item, analysis.point)).level()),
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
        const bool saturated = row.row().data_saturated;
        const auto mean = add_sweeps(samples);
        const double phase = follower_.add(mean, saturated);
        between_frames_ ? spectrum_.add(mean) : spectrum_.restart();
        saturated_ = saturated_ || saturated;
        auto &track = analysis_.track;
        const bool begins_part = is_in_gap() && track.size() < 2 * most_phases;
        if (number % phase_step_ == 0 || begins_part)
        {
            track.push_back({.time = row.begin(), .phase = phase, .saturated = saturated_});
            saturated_ = false;
        }
    }

    /** There is a gap, or a frame that is not valid. */
    void interrupt(const frame_rows &row)
    {
        follower_.restart();
        spectrum_.restart();
        if (!is_in_gap())
        {
            analysis_.track.push_back(
                {.time = row.begin(), .phase = std::numeric_limits<double>::quiet_NaN()});
        }
    }

    /** Completes the figures. */
    void finish(double rate_of_sweeps)
    {
        auto &result = analysis_.spectrum;
        result.between_frames = between_frames_;
        result.rate = between_frames_ ? analysis_.time.rate : rate_of_sweeps;
        result.segments = spectrum_.segments();
        result.segment_length = spectrum_.length();
        result.floor = spectrum_.floor(between_frames_ ? frame_noise_ : noise_);
        if (result.rate > 0.0)
        {
            result.levels = spectrum_.levels();
            result.velocities = spectrum_velocities(result.levels.size(), result.rate);
        }
        analysis_.share = frames_ > 0 ? static_cast<double>(echoes_) / static_cast<double>(frames_) : 0.0;
        analysis_.above_noise = analysis_.above_noise || echoes_ > 0;
        analysis_.mostly_noise = analysis_.above_noise && 2 * probable_echoes_ < frames_;
        analysis_.rests = rests();
        analysis_.aliased = is_aliased();
    }

private:
    /** Whether the track has no phase since the last gap. */
    [[nodiscard]] bool is_in_gap() const
    {
        return analysis_.track.empty() || std::isnan(analysis_.track.back().phase);
    }

    /** Number of samples in a segment of the spectrum; 0 if there are too few. */
    [[nodiscard]] size_t segment_length(uint64_t valid_run) const
    {
        const uint64_t usable = valid_run < fewest_frames ? 0 : valid_run;
        return std::min<size_t>(between_frames_ ? usable : layout_.sweeps(), longest_segment);
    }

    /** Counts a frame with this mean magnitude at the point. */
    void count_echo(double level)
    {
        // Most frames of noise are below the first of these, and all below the second.
        constexpr double probable = 2.0;
        const double sure = std::max(3.0, 1.0 + 4.0 / std::sqrt(static_cast<double>(layout_.sweeps())));
        probable_echoes_ += level > probable * background_ ? 1 : 0;
        echoes_ += level > sure * background_ ? 1 : 0;
        ++frames_;
    }

    /** Adds the sweeps of a frame to the spectrum, unless it is between frames; returns their mean. */
    std::complex<double> add_sweeps(const std::vector<sample> &samples)
    {
        std::complex<double> sum;
        double level = 0.0;
        for (auto place = analysis_.point; place < samples.size(); place += layout_.sweep_length)
        {
            sum += std::complex<double>(samples[place]);
            level += magnitude(samples[place]);
            power_ += std::norm(std::complex<double>(samples[place]));
            ++samples_;
            between_frames_
                ? void()
                : spectrum_.add(std::complex<double>(samples[place]) - analysis_.mean[analysis_.point]);
        }
        const auto sweeps = static_cast<double>(std::max<size_t>(layout_.sweeps(), 1));
        count_echo(level / sweeps);
        return sum / sweeps;
    }

    /** Whether at least a quarter of the power at the point is that of an echo that does not move. */
    [[nodiscard]] bool rests() const
    {
        return samples_ > 0 &&
               4.0 * std::norm(analysis_.mean[analysis_.point]) > power_ / static_cast<double>(samples_);
    }

    /** Whether the echo at the point moves too fast for the frame rate. */
    [[nodiscard]] bool is_aliased() const
    {
        const double bound = velocity_bound(analysis_.time.rate);
        if (!(bound > 0.0) || !analysis_.above_noise)
        {
            return false;
        }
        const bool fast = motion_speed() > bound || spectrum_speed() > bound;
        return follower_.is_ambiguous() || (fast && !analysis_.rests);
    }

    /** The highest speed of the strongest moving echo; 0 if it is not known. */
    [[nodiscard]] double motion_speed() const
    {
        const auto &motion = analysis_.motion;
        return motion && motion->fastest ? std::fabs(motion->fastest->from_distance) : 0.0;
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
    double background_;  /**< mean magnitude of noise and offset */
    double noise_;       /**< RMS amplitude in a sweep */
    double frame_noise_; /**< RMS amplitude in the mean of a frame's sweeps */
    spectrum_feeder spectrum_;
    phase_follower follower_;
    uint64_t phase_step_;
    double power_ = 0.0;   /**< sum over the samples at the point */
    uint64_t samples_ = 0; /**< their number */
    uint64_t frames_ = 0;  /**< valid ones */
    uint64_t echoes_ = 0;  /**< frames in which there is certainly an echo at the point */
    uint64_t probable_echoes_ = 0;
    bool saturated_ = false; /**< since the last point of the track */
};

/** The velocity of the strongest moving echo, if a picture of velocities does not show it as it is. */
std::optional<aliased_velocity> alias_of(const recorded_item &item, const item_analysis &analysis)
{
    if (!analysis.motion || !analysis.motion->fastest)
    {
        return std::nullopt;
    }
    const auto between_sweeps = has_velocity_map(item.layout)
                                    ? find_alias(*analysis.motion, velocity_bound(sweep_rate(item)))
                                    : std::nullopt;
    const double velocity = analysis.motion->fastest->from_distance;
    const double bound = velocity_bound(analysis.time.rate);
    const bool fast =
        item.layout.sweeps() < fewest_sweeps_of_spectrum && bound > 0.0 && std::fabs(velocity) > bound;
    return fast && !between_sweeps ? aliased_velocity{.velocity = velocity, .bound = bound} : between_sweeps;
}

} // namespace

void analyse_point(recording_reader &recording, size_t index, const timeline &times, item_analysis &analysis)
{
    const auto &item = recording.items()[index];
    point_feeder point(item, recording.frames(), times.longest_run(), analysis);
    velocity_map_builder map(item);
    motion_tracker motion(item, analysis.mean, analysis.around);
    frame_rows rows(recording, index, times);
    std::vector<sample> samples;
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        recording.read_frame(index, number, samples);
        rows.advance();
        if (rows.after_gap() || !rows.valid())
        {
            point.interrupt(rows);
            motion.interrupt();
        }
        if (rows.valid())
        {
            point.add(number, rows, samples);
            map.add(samples);
            motion.add(rows.begin(), samples);
        }
    }
    analysis.motion = motion.finish();
    if (analysis.motion && !analysis.time.in_seconds)
    {
        analysis.motion->fastest.reset();
    }
    analysis.alias = alias_of(item, analysis);
    point.finish(sweep_rate(item));
    const auto quieter = [](const auto &a, const auto &b) { return a.noise < b.noise; };
    const auto quietest = std::min_element(analysis.around.begin(), analysis.around.end(), quieter);
    analysis.velocities = map.finish(sweep_rate(item), quietest->noise);
}

} // namespace vantor
