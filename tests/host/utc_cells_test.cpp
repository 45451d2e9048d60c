/** @file
 * Tests of the cells of a table that have a time in UTC and its bound.
 */
#include "recording/utc_cells.h"

#include <random>

#include <gmock/gmock.h>

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

/** A time this long after 1970, and its bound. */
utc_time after_1970(nanoseconds span, nanoseconds bound)
{
    return {.moment = std::chrono::sys_time<nanoseconds>(span), .bound = bound};
}

/** The two cells of a time. */
std::string cells_of(const std::optional<utc_time> &utc)
{
    std::string text;
    append_utc_cells(text, utc);
    return text;
}

/** Reads two cells; nothing if they are not valid. */
std::optional<utc_time> read(std::string_view text)
{
    const auto comma = text.find(',');
    std::optional<utc_time> utc;
    return read_utc_cells(text.substr(0, comma), text.substr(comma + 1), utc) ? utc : std::nullopt;
}

TEST(utc_cells, have_six_digits_and_a_bound_that_is_rounded_up)
{
    EXPECT_EQ(cells_of({}), ",,");
    EXPECT_EQ(cells_of(after_1970(0s, 0s)), "0.000000,0.000000,");
    EXPECT_EQ(cells_of(after_1970(1795455600s + 1us, 1s)), "1795455600.000001,1.000000,");
    EXPECT_EQ(cells_of(after_1970(1795455600s, 1ns)), "1795455600.000000,0.000001,");
    // The bound includes the 400 ns by which the time is rounded down, or up.
    EXPECT_EQ(cells_of(after_1970(12s + 400ns, 600ns)), "12.000000,0.000001,");
    EXPECT_EQ(cells_of(after_1970(12s + 400ns, 601ns)), "12.000000,0.000002,");
    EXPECT_EQ(cells_of(after_1970(13s - 400ns, 600ns)), "13.000000,0.000001,");
    EXPECT_EQ(cells_of(after_1970(-250ms, 3600s)), "-0.250000,3600.000000,");
    EXPECT_EQ(cells_of(after_1970(-2s, 0s)), "-2.000000,0.000000,");
}

TEST(utc_cells, contain_the_true_time_within_the_bound_when_they_are_read)
{
    std::mt19937_64 random(17);
    std::uniform_int_distribution<int64_t> moments(-4'599'999'999'000'000'000, 4'599'999'999'000'000'000);
    std::uniform_int_distribution<int64_t> bounds(0, 1'000'000'000);
    for (int i = 0; i < 10000; ++i)
    {
        const auto exact = after_1970(nanoseconds(moments(random)), nanoseconds(bounds(random)));
        auto text = cells_of(exact);
        text.pop_back();
        const auto known = read(text);
        ASSERT_TRUE(known) << text;
        const auto away = std::chrono::abs(known->moment - exact.moment);
        ASSERT_GE(known->bound, exact.bound + away) << text;
        ASSERT_LT(known->bound, exact.bound + away + 1us) << text;
        ASSERT_LE(away, 500ns) << text;
        EXPECT_EQ(cells_of(known), text + ",");
    }
}

TEST(utc_cells, are_both_empty_or_both_valid)
{
    std::optional<utc_time> utc = after_1970(1s, 1s);
    EXPECT_TRUE(read_utc_cells("", "", utc));
    EXPECT_FALSE(utc);
    EXPECT_TRUE(read("-1.000000,2.000000"));
    for (const char *text : {"1.000000,",
                             ",1.000000",
                             "1,1",
                             "1.0,1.0",
                             "1.0000000,1.000000",
                             "1.000000,-1.000000",
                             "+1.000000,1.000000",
                             "--1.000000,1.000000",
                             "1.-00001,1.000000",
                             ".000000,1.000000",
                             "1.00000e,1.000000",
                             "nan,nan",
                             "inf,inf",
                             "1e300,1.000000",
                             "-1e300,1.000000",
                             "4600000000.000000,0.000001",
                             "-4600000000.000000,0.000001",
                             "0.000000,4600000000.000000",
                             "99999999999999999999.000000,0.000001",
                             " 1.000000,1.000000"})
    {
        EXPECT_FALSE(read(text)) << text;
    }
}

} // namespace
} // namespace vantor
