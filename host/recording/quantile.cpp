/** @file
 * Quantiles of many numbers.
 */
#include "recording/quantile.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <vector>

#include "recording/vector_clones.h"

namespace vantor
{
namespace
{

/** The least and the greatest value. */
struct value_range
{
    int32_t lowest = std::numeric_limits<int32_t>::max();
    int32_t highest = std::numeric_limits<int32_t>::min();
};

/** The range of values. */
VANTOR_VECTOR_CLONES value_range range_of(std::span<const int32_t> values)
{
    value_range range;
    for (const int32_t value : values)
    {
        range.lowest = std::min(range.lowest, value);
        range.highest = std::max(range.highest, value);
    }
    return range;
}

/** How many values are at most the bound. */
VANTOR_VECTOR_CLONES uint32_t count_up_to(std::span<const int32_t> values, int32_t bound)
{
    // The compiler vectorises this, because the counter is as wide as a value.
    uint32_t count = 0;
    for (const int32_t value : values)
    {
        count += value <= bound ? 1U : 0U;
    }
    return count;
}

/** The least of the values that are at least the bound, of which there is one. */
VANTOR_VECTOR_CLONES int32_t least_from(std::span<const int32_t> values, int32_t bound)
{
    // How far values are above the bound, modulo 2^32: those below it are farther than all others.
    const auto base = static_cast<uint32_t>(bound);
    uint32_t least = std::numeric_limits<uint32_t>::max();
    for (const int32_t value : values)
    {
        least = std::min(least, static_cast<uint32_t>(value) - base);
    }
    return static_cast<int32_t>(base + least);
}

} // namespace

int32_t quantile(std::span<const int32_t> values, size_t below)
{
    auto [lowest, highest] = range_of(values);
    size_t count_below = 0;
    size_t count_up = values.size();
    bool converges = true;
    while (lowest < highest && count_up - count_below > 1)
    {
        const int64_t span = int64_t{highest} - lowest;
        // Where the element is if the values are spread evenly; in the middle if that was far from true.
        const double share = converges ? (static_cast<double>(below - count_below) + 0.5) /
                                             static_cast<double>(count_up - count_below)
                                       : 0.5;
        const auto bound =
            static_cast<int32_t>(lowest + static_cast<int64_t>(share * static_cast<double>(span)));
        const size_t count = count_up_to(values, bound);
        if (count > below)
        {
            highest = bound;
            count_up = count;
        }
        else
        {
            lowest = bound + 1;
            count_below = count;
        }
        converges = int64_t{highest} - lowest <= span / 2;
    }
    return lowest == highest ? lowest : least_from(values, lowest);
}

float quantile_of_powers(std::span<const float> values, size_t below)
{
    // The bits of such numbers have the same order as the numbers.
    std::vector<int32_t> bits(values.size());
    std::ranges::transform(values, bits.begin(), [](float value) { return std::bit_cast<int32_t>(value); });
    return std::bit_cast<float>(quantile(bits, below));
}

} // namespace vantor
