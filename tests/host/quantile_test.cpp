/** @file
 * Tests of the quantiles of many numbers.
 */
#include "recording/quantile.h"

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include <gmock/gmock.h>

namespace vantor
{
namespace
{

/** The element that this many elements precede, by sorting. */
template <typename value_t> value_t sorted_element(std::vector<value_t> values, size_t below)
{
    std::sort(values.begin(), values.end());
    return values.at(below);
}

TEST(quantile, is_the_element_that_sorting_finds)
{
    std::mt19937 random(3);
    for (const int32_t most : {1, 7, 1000, std::numeric_limits<int32_t>::max()})
    {
        std::uniform_int_distribution<int32_t> value(-most, most);
        for (size_t length = 1; length < 40; ++length)
        {
            std::vector<int32_t> values(length);
            std::generate(values.begin(), values.end(), [&] { return value(random); });
            for (size_t below = 0; below < length; ++below)
            {
                EXPECT_EQ(quantile(values, below), sorted_element(values, below)) << length << ", " << below;
            }
        }
    }
}

TEST(quantile, accepts_the_smallest_and_the_largest_number)
{
    using limits = std::numeric_limits<int32_t>;
    const std::vector<int32_t> values{limits::max(), limits::min(), 5, limits::max()};
    EXPECT_EQ(quantile(values, 0), limits::min());
    EXPECT_EQ(quantile(values, 1), 5);
    EXPECT_EQ(quantile(values, 3), limits::max());
}

TEST(quantile_of_powers, is_the_element_that_sorting_finds)
{
    std::mt19937 random(5);
    std::lognormal_distribution<float> value(0.0F, 30.0F);
    std::vector<float> values{0.0F, std::numeric_limits<float>::denorm_min(),
                              std::numeric_limits<float>::max(), std::numeric_limits<float>::infinity()};
    while (values.size() < 200)
    {
        values.push_back(value(random));
    }
    for (size_t below = 0; below < values.size(); ++below)
    {
        EXPECT_EQ(quantile_of_powers(values, below), sorted_element(values, below)) << below;
    }
}

} // namespace
} // namespace vantor
