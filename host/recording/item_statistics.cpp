/** @file
 * Statistics of an item's samples over many frames.
 */
#include "vantor/item_statistics.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

#include "recording/noise_estimate.h"
#include "recording/quantile.h"
#include "recording/vector_clones.h"

namespace vantor
{
namespace
{

/** Whether a part of a sample has reached the end of its range. */
bool is_clipped(const sample &value)
{
    const auto ends = [](int16_t part) {
        return part == std::numeric_limits<int16_t>::max() || part == std::numeric_limits<int16_t>::min();
    };
    return ends(value.i) || ends(value.q);
}

/** Whether any sample has reached the end of its range. */
VANTOR_VECTOR_CLONES bool has_clipped(std::span<const sample> samples)
{
    // The compiler vectorises this if both parts of a sample are treated alike.
    const std::span parts(reinterpret_cast<const int16_t *>(samples.data()), 2 * samples.size());
    int16_t lowest = 0;
    int16_t highest = 0;
    for (const int16_t part : parts)
    {
        lowest = std::min(lowest, part);
        highest = std::max(highest, part);
    }
    return lowest == std::numeric_limits<int16_t>::min() || highest == std::numeric_limits<int16_t>::max();
}

/** Adds the magnitude of each sample of a sweep to a sum. */
VANTOR_VECTOR_CLONES void add_magnitudes(std::span<double> sums, const sample *sweep)
{
    for (size_t point = 0; point < sums.size(); ++point)
    {
        const auto i = static_cast<float>(sweep[point].i);
        const auto q = static_cast<float>(sweep[point].q);
        sums[point] += static_cast<double>(std::sqrt(i * i + q * q));
    }
}

/** Adds each part of the samples of a sweep to a sum. */
VANTOR_VECTOR_CLONES void add_parts(std::span<double> sums, const int16_t *parts)
{
    for (size_t i = 0; i < sums.size(); ++i)
    {
        sums[i] += static_cast<double>(parts[i]);
    }
}

/** Adds the power of the difference between the samples of two sweeps to a sum. */
VANTOR_VECTOR_CLONES void add_differences(std::span<float> sums, const sample *earlier, const sample *later)
{
    for (size_t point = 0; point < sums.size(); ++point)
    {
        const auto i = static_cast<float>(later[point].i - earlier[point].i);
        const auto q = static_cast<float>(later[point].q - earlier[point].q);
        sums[point] += i * i + q * q;
    }
}

/**
 * Sums of parts of samples since an interval began, as whole numbers; the largest ones if they have more than
 * 65,000 clipped parts.
 *
 * @param parts    receives them
 * @param sums     the sums now, in the same order
 * @param earlier  the sums when the interval began
 */
VANTOR_VECTOR_CLONES void subtract_parts(std::span<int32_t> parts, const double *sums, const double *earlier)
{
    constexpr double most = std::numeric_limits<int32_t>::max();
    for (size_t i = 0; i < parts.size(); ++i)
    {
        const double sum = sums[i] - earlier[i];
        const double limited = sum < -most ? -most : sum;
        parts[i] = static_cast<int32_t>(limited > most ? most : limited);
    }
}

/** Every second one of some numbers, from the first one on. */
VANTOR_VECTOR_CLONES void take_every_second(std::span<int32_t> taken, const int32_t *numbers)
{
    for (size_t i = 0; i < taken.size(); ++i)
    {
        taken[i] = numbers[2 * i];
    }
}

} // namespace

double background::level() const
{
    // The mean of a Rice distribution; from this ratio of powers on, what it tends to.
    constexpr double great = 100.0;
    const double amplitude = noise * steadiness;
    if (amplitude == 0.0 || offset * offset > great * amplitude * amplitude)
    {
        return std::sqrt(offset * offset + amplitude * amplitude / 2.0);
    }
    const double ratio = offset * offset / (amplitude * amplitude);
    const double half = ratio / 2.0;
    return std::isnan(amplitude)
               ? amplitude
               : amplitude * std::sqrt(std::numbers::pi) / 2.0 * std::exp(-half) *
                     ((1.0 + ratio) * std::cyl_bessel_i(0.0, half) + ratio * std::cyl_bessel_i(1.0, half));
}

item_statistics::item_statistics(const item_layout &layout)
    : sweep_length_(layout.sweep_length), subsweeps_(layout.subsweeps), intervals_(layout.subsweeps.size())
{
}

/** Adds a sweep to the sums. */
void item_statistics::add_sweep(std::span<const sample> sweep)
{
    add_magnitudes(sums_, sweep.data());
    // A complex number is an array of its parts, as is a sample.
    add_parts({reinterpret_cast<double *>(means_.data()), 2 * means_.size()},
              reinterpret_cast<const int16_t *>(sweep.data()));
    ++sweeps_;
}

/** Notes which samples of a sweep are clipped. */
void item_statistics::note_clipped(std::span<const sample> sweep)
{
    for (size_t point = 0; point < clipped_.size(); ++point)
    {
        clipped_[point] = clipped_[point] || is_clipped(sweep[point]);
    }
}

/** Adds the difference between two sweeps. @p clipped  whether one of them may have a clipped sample */
void item_statistics::compare(std::span<const sample> earlier, std::span<const sample> later, bool clipped)
{
    // Enough that few points of noise look like an echo, and few enough that an echo does not pass many
    // points.
    constexpr unsigned enough = 8;
    add_differences(differences_, earlier.data(), later.data());
    for (size_t point = 0; clipped && point < differences_.size(); ++point)
    {
        if (is_clipped(earlier[point]) || is_clipped(later[point]))
        {
            differences_[point] = std::numeric_limits<float>::quiet_NaN();
        }
    }
    // The variance of a square, and twice the covariance of the squares of two differences with a common
    // sweep.
    variance_ += consecutive_ && compared_ > 0 ? 4.0 + 2.0 : 4.0;
    consecutive_ = true;
    ++compared_;
    if (compared_ == enough)
    {
        finish_interval();
    }
}

/** Ends an interval, and begins the next one. */
void item_statistics::finish_interval()
{
    for (size_t i = 0; i < subsweeps_.size(); ++i)
    {
        if (subsweeps_[i].length > 0)
        {
            add_noise(i, intervals_[i]);
            intervals_[i].offset += interval_offset(subsweeps_[i]);
        }
    }
    ++count_;
    std::fill(differences_.begin(), differences_.end(), 0.0F);
    compared_ = 0;
    variance_ = 0.0;
    earlier_ = means_;
    earlier_sweeps_ = sweeps_;
}

/** The offset in the current interval: echoes are at fewer than half of the points. */
std::complex<double> item_statistics::interval_offset(const subsweep_layout &place) const
{
    // A complex number is an array of its parts.
    std::vector<int32_t> parts(2 * place.length);
    subtract_parts(parts, reinterpret_cast<const double *>(means_.data() + place.offset),
                   reinterpret_cast<const double *>(earlier_.data() + place.offset));
    std::vector<int32_t> real(place.length);
    take_every_second(real, parts.data());
    std::vector<int32_t> imaginary(place.length);
    take_every_second(imaginary, parts.data() + 1);
    const std::complex<double> median(quantile(real, place.length / 2),
                                      quantile(imaginary, place.length / 2));
    return median / static_cast<double>(sweeps_ - earlier_sweeps_);
}

/** Adds the noise in the current interval. */
void item_statistics::add_noise(size_t subsweep, interval_sums &sums) const
{
    const auto &place = subsweeps_[subsweep];
    const double mean = 2.0 * compared_;
    const auto part = std::span(differences_).subspan(place.offset, place.length);
    std::vector<float> powers(part.begin(), part.end());
    std::erase_if(powers, [](float power) { return std::isnan(power); });
    for (auto &power : powers)
    {
        power /= static_cast<float>(mean);
    }
    const auto found = estimate_noise(powers, mean * mean / variance_);
    if (found && found->certain)
    {
        sums.power += found->power;
        sums.amplitude += std::sqrt(found->power);
        ++sums.count;
    }
    else if (found)
    {
        sums.lowest = std::min(sums.lowest, found->power);
    }
}

void item_statistics::add(std::span<const sample> samples)
{
    const size_t length = sweep_length_;
    if (length == 0 || samples.size() < length)
    {
        return;
    }
    // Not before: a document can describe far more samples than there are.
    sums_.resize(length);
    means_.resize(length);
    clipped_.resize(length);
    differences_.resize(length);
    earlier_.resize(length);
    const bool clipped = has_clipped(samples);
    for (size_t place = 0; place + length <= samples.size(); place += length)
    {
        const auto sweep = samples.subspan(place, length);
        add_sweep(sweep);
        if (clipped)
        {
            note_clipped(sweep);
        }
        consecutive_ = consecutive_ && (place > 0 || samples.size() == length);
        if (place > 0)
        {
            compare(samples.subspan(place - length, length), sweep, clipped);
        }
    }
    if (samples.size() == length)
    {
        if (!previous_.empty())
        {
            compare(previous_, samples, clipped || has_clipped(previous_));
        }
        previous_.assign(samples.begin(), samples.end());
    }
}

void item_statistics::restart()
{
    previous_.clear();
    consecutive_ = false;
}

std::optional<double> item_statistics::mean_level() const
{
    if (sweeps_ == 0)
    {
        return std::nullopt;
    }
    const double sum = std::accumulate(sums_.begin(), sums_.end(), 0.0);
    return sum / static_cast<double>(sweeps_) / static_cast<double>(sums_.size());
}

std::vector<double> item_statistics::profile() const
{
    std::vector<double> levels(sums_);
    levels.resize(sweep_length_);
    for (auto &level : levels)
    {
        level /= static_cast<double>(std::max<uint64_t>(sweeps_, 1));
    }
    return levels;
}

std::vector<std::complex<double>> item_statistics::means() const
{
    auto means = means_;
    means.resize(sweep_length_);
    for (auto &mean : means)
    {
        mean /= static_cast<double>(std::max<uint64_t>(sweeps_, 1));
    }
    return means;
}

/** The noise in a sub-sweep, without an offset. */
background item_statistics::noise_of(size_t subsweep) const
{
    auto sums = intervals_[subsweep];
    if (count_ == 0 && compared_ > 0)
    {
        // A short recording: the interval that is not complete is better than none.
        add_noise(subsweep, sums);
    }
    if (sums.count == 0)
    {
        return std::isinf(sums.lowest) ? background{} : background{.noise = std::sqrt(sums.lowest)};
    }
    const auto count = static_cast<double>(sums.count);
    const double noise = std::sqrt(sums.power / count);
    return {.noise = noise, .steadiness = noise > 0.0 ? sums.amplitude / count / noise : 1.0};
}

/** The power of the offset in a sub-sweep with this RMS amplitude of the noise. */
double item_statistics::offset_power(size_t subsweep, double noise) const
{
    const auto &place = subsweeps_[subsweep];
    const auto count = static_cast<double>(sweeps_);
    std::vector<float> powers;
    for (size_t point = place.offset; point < place.offset + place.length; ++point)
    {
        powers.push_back(static_cast<float>(std::norm(means_[point] / count)));
    }
    // Noise adds to the mean samples, too.
    const double lower = std::max(quantile_of_powers(powers, place.length / 4) - noise * noise / count, 0.0);
    if (count_ == 0)
    {
        return lower;
    }
    // An echo that passes many points is in the mean samples, but at few points in an interval.
    return std::min(lower, std::norm(intervals_[subsweep].offset / static_cast<double>(count_)));
}

background item_statistics::background_of(size_t subsweep) const
{
    const auto &place = subsweeps_.at(subsweep);
    if (place.length == 0 || sweeps_ == 0)
    {
        return {};
    }
    auto found = noise_of(subsweep);
    found.offset = std::sqrt(offset_power(subsweep, std::isnan(found.noise) ? 0.0 : found.noise));
    return found;
}

} // namespace vantor
