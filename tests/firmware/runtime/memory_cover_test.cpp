/** @file
 * Tests of covering addresses with regions of the memory protection unit. The tests calculate in 64 bits.
 */
#include "memory_protection.h"

#include <random>

#include <gtest/gtest.h>

namespace
{

using cortex_m4::cover;
using cortex_m4::covered;
using cortex_m4::region_t;
using cortex_m4::rights_t;
using cortex_m4::unit_region_t;

constexpr uint64_t all_addresses = uint64_t{1} << 32U;

/** The smallest size of an aligned region that contains both addresses: a power of two, at least 32. */
uint64_t smallest_size(uint64_t begin, uint64_t last)
{
    uint64_t size = 32;
    while (begin / size != last / size)
    {
        size *= 2;
    }
    return size;
}

/** Checks every eighth of a region. */
void check(uint32_t begin, uint32_t last)
{
    SCOPED_TRACE(testing::Message() << std::hex << begin << " to " << last);
    const unit_region_t unit = cover(begin, last);
    ASSERT_GE(unit.log2_size, 5U);
    ASSERT_LE(unit.log2_size, 32U);
    const uint64_t size = uint64_t{1} << unit.log2_size;
    EXPECT_EQ(size, smallest_size(begin, last));
    EXPECT_EQ(unit.begin % size, 0U);
    EXPECT_LE(unit.begin, begin);
    EXPECT_GT(unit.begin + size, last);
    EXPECT_LE(unit.begin + size, all_addresses);
    EXPECT_LE(unit.disabled_eighths, size < 256 ? 0U : 0xFFU);

    const region_t open = covered({"x", begin, last, rights_t::read});
    EXPECT_STREQ(open.name, "x");
    EXPECT_EQ(open.rights, rights_t::read);
    EXPECT_LE(open.begin, begin);
    EXPECT_GE(open.last, last);
    for (uint64_t i = 0; i < 8; ++i)
    {
        const uint64_t first_of_eighth = unit.begin + i * size / 8;
        const uint64_t last_of_eighth = first_of_eighth + size / 8 - 1;
        const bool is_needed = size < 256 || (first_of_eighth <= last && last_of_eighth >= begin);
        EXPECT_EQ((unit.disabled_eighths >> i & 1U) == 0U, is_needed) << "eighth " << i;
        EXPECT_EQ(first_of_eighth >= open.begin && last_of_eighth <= open.last, is_needed) << "eighth " << i;
    }
}

TEST(memory_cover, covers_any_addresses)
{
    std::mt19937 random(1);
    for (int i = 0; i < 20000; ++i)
    {
        const auto begin = static_cast<uint32_t>(random());
        const auto size = static_cast<uint32_t>(random()) >> random() % 32U;
        check(begin, begin + std::min(size, UINT32_MAX - begin));
    }
}

TEST(memory_cover, covers_addresses_at_the_ends_of_regions)
{
    std::vector<uint32_t> ends = {0, UINT32_MAX};
    for (uint32_t log2 = 0; log2 < 32; ++log2)
    {
        for (const uint32_t end : {(1U << log2) - 1U, 1U << log2, (1U << log2) + 1U, 0U - (1U << log2)})
        {
            ends.push_back(end);
        }
    }
    for (const uint32_t begin : ends)
    {
        for (const uint32_t last : ends)
        {
            if (begin <= last)
            {
                check(begin, last);
            }
        }
    }
}

void expect_cover(uint32_t begin, uint32_t last, const unit_region_t &expected)
{
    const unit_region_t unit = cover(begin, last);
    EXPECT_EQ(unit.begin, expected.begin);
    EXPECT_EQ(unit.log2_size, expected.log2_size);
    EXPECT_EQ(unit.disabled_eighths, expected.disabled_eighths);
}

TEST(memory_cover, covers_memories_of_real_chips)
{
    // After a boot loader.
    expect_cover(0x08020200, 0x0803FFFF, {0x08020000, 17, 0});
    // 96 KiB.
    expect_cover(0x20000000, 0x20017FFF, {0x20000000, 17, 0xC0});
    // 192 KiB.
    expect_cover(0x20000000, 0x2002FFFF, {0x20000000, 18, 0xC0});
    // One 32nd at the beginning is not needed: all eighths are enabled.
    expect_cover(0x08004000, 0x0807FFFF, {0x08000000, 19, 0});
    // One eighth is not needed.
    expect_cover(0x08010000, 0x0807FFFF, {0x08000000, 19, 0x01});
    // The id of a chip.
    expect_cover(0x1FFF7A10, 0x1FFF7A1B, {0x1FFF7A00, 5, 0});
    // Memory across a large boundary.
    expect_cover(0x1FFFF000, 0x20003FFF, {0, 30, 0xE7});
    expect_cover(0, UINT32_MAX, {0, 32, 0});
}

} // namespace
