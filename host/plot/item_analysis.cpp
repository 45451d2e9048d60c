/** @file
 * Computes what the picture of an item shows.
 */
#include "plot/item_analysis.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "plot/spectrum.h"
#include "recording/frame_table.h"
#include "recording/item_statistics.h"

namespace vantor
{
namespace
{

/** Maximum number of strips in a map and of phases, so that the files for long recordings stay small. */
constexpr uint64_t most_strips = 400;
constexpr uint64_t most_phases = 4000;

/** Minimum number of sweeps in a frame for a useful spectrum. */
constexpr size_t fewest_sweeps = 16;

/** Minimum number of frames for a useful spectrum, and the maximum length of a segment. */
constexpr uint64_t fewest_frames = 16;
constexpr size_t longest_segment = 512;

/** Selects the point for phase and Doppler. */
size_t choose_point(const recorded_item &item, const item_statistics &statistics,
                    std::optional<double> distance)
{
    if (!distance)
    {
        return statistics.strongest_point().value_or(0);
    }
    size_t best = 0;
    double away = INFINITY;
    for (size_t i = 0; i < item.distances.size(); ++i)
    {
        if (const double difference = std::fabs(item.distances[i] - *distance); difference < away)
        {
            best = i;
            away = difference;
        }
    }
    return best;
}

/** Reads the frame table line by line. */
class frame_rows
{
public:
    frame_rows(const recording_reader &recording, const recorded_item &item)
        : table_(recording.directory() / (item.name + ".frames.csv"))
    {
    }

    /** Moves to the next frame. */
    void advance()
    {
        if (const auto row = table_.next())
        {
            seconds_ = row->seconds;
            valid_ = row->data_valid.value_or(true);
        }
    }

    /** The time of the frame. */
    [[nodiscard]] double seconds() const
    {
        return seconds_;
    }

    /** Whether its samples are measured echoes: the sensor may have listened for other transmitters instead.
     */
    [[nodiscard]] bool valid() const
    {
        return valid_;
    }

private:
    frame_table table_;
    double seconds_ = 0.0;
    bool valid_ = true;
};

/** The maximum number of consecutive valid frames. */
uint64_t longest_run(const recording_reader &recording, const recorded_item &item)
{
    frame_rows rows(recording, item);
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

/** Tracks the phase of one point over the frames. */
class phase_follower
{
public:
    /** Adds the mean of a frame's sweeps; returns the unwrapped phase in radians. */
    double add(std::complex<double> value)
    {
        const double phase = std::arg(value);
        if (started_)
        {
            const double step = phase - last_;
            turned_ += step - 2.0 * std::numbers::pi * std::round(step / (2.0 * std::numbers::pi));
        }
        else
        {
            turned_ = phase;
        }
        started_ = true;
        last_ = phase;
        return turned_;
    }

private:
    bool started_ = false;
    double last_ = 0.0;
    double turned_ = 0.0;
};

/** Collects the strips of the map. */
class map_builder
{
public:
    map_builder(uint64_t frames, size_t sweep_length)
        : frames_per_strip_((frames + most_strips - 1) / most_strips), level_(sweep_length),
          sweep_length_(sweep_length)
    {
    }

    /** Adds a frame. */
    void add(double seconds, const std::vector<sample> &samples, std::vector<map_strip> &map)
    {
        if (frames_ == 0)
        {
            seconds_ = seconds;
        }
        level_.add(samples);
        if (++frames_ == frames_per_strip_)
        {
            map.push_back({seconds_, level_.profile()});
            level_ = item_statistics(sweep_length_);
            frames_ = 0;
        }
    }

private:
    uint64_t frames_per_strip_;
    uint64_t frames_ = 0; /**< number of frames in the current strip */
    double seconds_ = 0.0;
    item_statistics level_;
    size_t sweep_length_;
};

/** Splits a series of samples into segments for a spectrum. */
class spectrum_feeder
{
public:
    explicit spectrum_feeder(size_t length) : result_(std::max<size_t>(length, 1)), length_(length)
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

    /** The spectrum in dB relative to its maximum; empty without a complete segment. */
    void finish(double rate, item_analysis &analysis) const
    {
        if (result_.count() == 0 || !(rate > 0.0))
        {
            return;
        }
        const auto powers = result_.powers();
        const double highest = std::max(*std::max_element(powers.begin(), powers.end()), 1e-30);
        const size_t centre = length_ / 2;
        for (size_t k = 0; k < length_; ++k)
        {
            const auto offset = static_cast<double>(k) - static_cast<double>(centre);
            analysis.frequencies.push_back(offset / static_cast<double>(length_) * rate);
            analysis.powers.push_back(10.0 * std::log10(std::max(powers[k] / highest, 1e-12)));
        }
    }

private:
    spectrum result_;
    size_t length_;
    std::vector<std::complex<double>> segment_;
};

/** The sweep rate of an item, in hertz. */
double sweep_rate(const recorded_item &item)
{
    const double configured = item.configuration.sweep_rate;
    return configured > 0.0 ? configured : item.layout.max_sweep_rate;
}

/** Converts a sample to double precision. */
std::complex<double> widen(sample value)
{
    return {static_cast<double>(value.real()), static_cast<double>(value.imag())};
}

/** Returns the sum of a frame's sweeps at a point; also adds each sweep to the spectrum, if there is one. */
std::complex<double> sum_sweeps(const std::vector<sample> &samples, size_t point, size_t sweep_length,
                                spectrum_feeder *spectrum)
{
    std::complex<double> sum;
    for (auto place = point; place < samples.size(); place += sweep_length)
    {
        sum += widen(samples[place]);
        if (spectrum != nullptr)
        {
            spectrum->add(widen(samples[place]));
        }
    }
    return sum;
}

/** Reads the frames a second time, after the point has been selected. */
void follow_point(recording_reader &recording, size_t index, uint64_t valid_run, item_analysis &analysis)
{
    const auto &item = recording.items()[index];
    const auto &layout = item.layout;
    const auto frames = recording.frames();
    analysis.between_frames = layout.sweeps() < fewest_sweeps;
    const auto usable = valid_run < fewest_frames ? 0 : valid_run;
    spectrum_feeder spectrum(
        std::min<size_t>(analysis.between_frames ? usable : layout.sweeps(), longest_segment));
    map_builder map(frames, layout.sweep_length);
    phase_follower follower;
    frame_rows rows(recording, item);
    const auto phase_step = (frames + most_phases - 1) / most_phases;
    std::vector<sample> samples;
    for (uint64_t number = 0; number < frames; ++number)
    {
        recording.read_frame(index, number, samples);
        rows.advance();
        map.add(rows.seconds(), samples, analysis.map);
        if (!rows.valid())
        {
            spectrum.restart();
            continue;
        }
        const auto sum = sum_sweeps(samples, analysis.point, layout.sweep_length,
                                    analysis.between_frames ? nullptr : &spectrum);
        analysis.between_frames ? spectrum.add(sum) : spectrum.restart();
        const double phase = follower.add(sum);
        if (number % phase_step == 0)
        {
            analysis.seconds.push_back(rows.seconds());
            analysis.phase.push_back(phase);
        }
    }
    const double frame_rate = rows.seconds() > 0.0 ? static_cast<double>(frames - 1) / rows.seconds() : 0.0;
    spectrum.finish(analysis.between_frames ? frame_rate : sweep_rate(item), analysis);
}

} // namespace

item_analysis analyse_item(recording_reader &recording, size_t index, std::optional<double> distance)
{
    const auto &item = recording.items()[index];
    const auto valid_run = longest_run(recording, item);
    frame_rows rows(recording, item);
    item_statistics statistics(item.layout.sweep_length);
    std::vector<sample> samples;
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        recording.read_frame(index, number, samples);
        rows.advance();
        if (rows.valid() || valid_run == 0)
        {
            statistics.add(samples);
        }
    }
    item_analysis analysis;
    analysis.profile = statistics.profile();
    analysis.point = choose_point(item, statistics, distance);
    follow_point(recording, index, valid_run, analysis);
    return analysis;
}

} // namespace vantor
