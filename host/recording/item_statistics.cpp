/** @file
 * Statistics of an item's samples over many frames.
 */
#include "vantor/item_statistics.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

#include "recording/noise_estimate.h"

namespace vantor
{
namespace
{

/** The element that this many elements precede in ascending order. */
double quantile(std::vector<double> values, size_t below)
{
    const auto rank = values.begin() + static_cast<ptrdiff_t>(below);
    std::nth_element(values.begin(), rank, values.end());
    return *rank;
}

/** Whether a part of a sample has reached the end of its range. */
bool is_clipped(const sample &value)
{
    const auto ends = [](int16_t part) {
        return part == std::numeric_limits<int16_t>::max() || part == std::numeric_limits<int16_t>::min();
    };
    return ends(value.i) || ends(value.q);
}

/** The middle element in ascending order. */
double median(std::vector<double> values)
{
    const auto middle = values.size() / 2;
    return quantile(std::move(values), middle);
}

} // namespace

double background::level() const
{
    // The mean of a Rice distribution; from this ratio of powers on, what it tends to.
    constexpr double great = 100.0;
    if (noise == 0.0 || offset * offset > great * noise * noise)
    {
        return std::sqrt(offset * offset + noise * noise / 2.0);
    }
    const double ratio = offset * offset / (noise * noise);
    const double half = ratio / 2.0;
    return std::isnan(noise)
               ? noise
               : noise * std::sqrt(std::numbers::pi) / 2.0 * std::exp(-half) *
                     ((1.0 + ratio) * std::cyl_bessel_i(0.0, half) + ratio * std::cyl_bessel_i(1.0, half));
}

item_statistics::item_statistics(const item_layout &layout)
    : sweep_length_(layout.sweep_length), subsweeps_(layout.subsweeps), intervals_(layout.subsweeps.size())
{
}

/** Adds a sweep to the sums. */
void item_statistics::add_sweep(std::span<const sample> sweep)
{
    for (size_t point = 0; point < sums_.size(); ++point)
    {
        const double i = sweep[point].i;
        const double q = sweep[point].q;
        sums_[point] += std::sqrt(i * i + q * q);
        means_[point] += std::complex<double>(i, q);
        clipped_[point] = clipped_[point] || is_clipped(sweep[point]);
    }
    ++sweeps_;
}

/** Adds the difference between two sweeps. */
void item_statistics::compare(std::span<const sample> earlier, std::span<const sample> later)
{
    // Enough that few points of noise look like an echo, and few enough that an echo does not pass many
    // points.
    constexpr unsigned enough = 8;
    for (size_t point = 0; point < differences_.size(); ++point)
    {
        const double i = later[point].i - earlier[point].i;
        const double q = later[point].q - earlier[point].q;
        const bool clipped = is_clipped(earlier[point]) || is_clipped(later[point]);
        differences_[point] += clipped ? std::numeric_limits<double>::quiet_NaN() : i * i + q * q;
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
    std::fill(differences_.begin(), differences_.end(), 0.0);
    compared_ = 0;
    variance_ = 0.0;
    earlier_ = means_;
    earlier_sweeps_ = sweeps_;
}

/** The offset in the current interval: echoes are at fewer than half of the points. */
std::complex<double> item_statistics::interval_offset(const subsweep_layout &place) const
{
    std::vector<double> real;
    std::vector<double> imaginary;
    for (size_t point = place.offset; point < place.offset + place.length; ++point)
    {
        const auto sum = means_[point] - earlier_[point];
        real.push_back(sum.real());
        imaginary.push_back(sum.imag());
    }
    return std::complex<double>{median(std::move(real)), median(std::move(imaginary))} /
           static_cast<double>(sweeps_ - earlier_sweeps_);
}

/** Adds the noise in the current interval. */
void item_statistics::add_noise(size_t subsweep, interval_sums &sums) const
{
    const auto &place = subsweeps_[subsweep];
    const double mean = 2.0 * compared_;
    std::vector<double> powers;
    for (size_t point = place.offset; point < place.offset + place.length; ++point)
    {
        if (!std::isnan(differences_[point]))
        {
            powers.push_back(differences_[point] / mean);
        }
    }
    const auto found = estimate_noise(std::move(powers), mean * mean / variance_);
    if (found && found->certain)
    {
        sums.power += found->power;
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
    for (size_t place = 0; place + length <= samples.size(); place += length)
    {
        const auto sweep = samples.subspan(place, length);
        add_sweep(sweep);
        consecutive_ = consecutive_ && (place > 0 || samples.size() == length);
        if (place > 0)
        {
            compare(samples.subspan(place - length, length), sweep);
        }
    }
    if (samples.size() == length)
    {
        if (!previous_.empty())
        {
            compare(previous_, samples);
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

/** The power of the noise in a sub-sweep; NaN if unknown. */
double item_statistics::noise_power(size_t subsweep) const
{
    auto sums = intervals_[subsweep];
    if (count_ == 0 && compared_ > 0)
    {
        // A short recording: the interval that is not complete is better than none.
        add_noise(subsweep, sums);
    }
    if (sums.count > 0)
    {
        return sums.power / static_cast<double>(sums.count);
    }
    return std::isinf(sums.lowest) ? std::numeric_limits<double>::quiet_NaN() : sums.lowest;
}

/** The power of the offset in a sub-sweep with this power of the noise. */
double item_statistics::offset_power(size_t subsweep, double noise) const
{
    const auto &place = subsweeps_[subsweep];
    const auto count = static_cast<double>(sweeps_);
    std::vector<double> powers;
    for (size_t point = place.offset; point < place.offset + place.length; ++point)
    {
        powers.push_back(std::norm(means_[point] / count));
    }
    // Noise adds to the mean samples, too.
    const double lower = std::max(quantile(std::move(powers), place.length / 4) - noise / count, 0.0);
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
    const double noise = noise_power(subsweep);
    return {.noise = std::sqrt(noise),
            .offset = std::sqrt(offset_power(subsweep, std::isnan(noise) ? 0.0 : noise))};
}

} // namespace vantor
