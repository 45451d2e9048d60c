/** @file
 * Quantiles of many numbers.
 */
#include "recording/quantile.h"

#include <algorithm>
#include <bit>
#include <numeric>
#include <vector>

namespace vantor
{
namespace
{

/** How many values are at most the bound. */
uint32_t count_up_to(std::span<const int32_t> values, int32_t bound)
{
    // The compiler vectorises this, because the counter is as wide as a value.
    uint32_t count = 0;
    for (const int32_t value : values)
    {
        count += value <= bound ? 1U : 0U;
    }
    return count;
}

} // namespace

int32_t quantile(std::span<const int32_t> values, size_t below)
{
    const auto ends = std::ranges::minmax(values);
    int32_t lowest = ends.min;
    int32_t highest = ends.max;
    while (lowest < highest)
    {
        const int32_t middle = std::midpoint(lowest, highest);
        if (count_up_to(values, middle) > below)
        {
            highest = middle;
        }
        else
        {
            lowest = middle + 1;
        }
    }
    return lowest;
}

float quantile_of_powers(std::span<const float> values, size_t below)
{
    // The bits of such numbers have the same order as the numbers.
    std::vector<int32_t> bits(values.size());
    std::ranges::transform(values, bits.begin(), [](float value) { return std::bit_cast<int32_t>(value); });
    return std::bit_cast<float>(quantile(bits, below));
}

} // namespace vantor
