/** @file
 * Covers addresses with regions of the memory protection unit.
 */
#include <algorithm>
#include <bit>

#include "memory_protection.h"

namespace cortex_m4
{

unit_region_t cover(uint32_t begin, uint32_t last)
{
    // The highest bit in which the two ends differ, and all lower bits, vary within the region.
    const auto needed = static_cast<uint32_t>(std::bit_width(begin ^ last));
    unit_region_t region = {0, std::max<uint32_t>(needed, 5), 0};
    region.begin = region.log2_size < 32U ? begin >> region.log2_size << region.log2_size : 0U;
    if (region.log2_size >= 8U)
    {
        const uint32_t log2_eighth = region.log2_size - 3U;
        const uint32_t first = (begin - region.begin) >> log2_eighth;
        const uint32_t end = ((last - region.begin) >> log2_eighth) + 1U;
        region.disabled_eighths = 0xFFU & ~((1U << end) - (1U << first));
    }
    return region;
}

region_t covered(const region_t &region)
{
    const unit_region_t unit = cover(region.begin, region.last);
    const uint32_t log2_step = unit.log2_size >= 8U ? unit.log2_size - 3U : unit.log2_size;
    const uint32_t step_mask = (1U << log2_step) - 1U;
    return {region.name, region.begin & ~step_mask, region.last | step_mask, region.rights};
}

} // namespace cortex_m4
