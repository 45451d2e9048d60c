/** @file
 * How long the backend waits for a sensor's interrupt.
 */
#include <limits>

#include "support/backend_fixture.h"

namespace backend_tests
{

namespace
{

constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr uint32_t longest = std::numeric_limits<uint32_t>::max();

/** The rates in a session with one item. */
struct rates_t
{
    float frame_rate;
    float sweep_rate;
    float max_sweep_rate;
    uint16_t sweeps_per_frame;
};

class interrupt_timeout : public ready_backend_test
{
protected:
    /** The time-out of the wait for a frame, in a session with one item. */
    uint32_t timeout_of(const rates_t &rates)
    {
        neighbours().config_defaults.frame_rate = rates.frame_rate;
        neighbours().config_defaults.sweep_rate = rates.sweep_rate;
        neighbours().config_defaults.sweeps_per_frame = rates.sweeps_per_frame;
        zet_processing_metadata_t metadata = default_metadata();
        metadata.max_sweep_rate = rates.max_sweep_rate;
        neighbours().metadata = {metadata};
        EXPECT_TRUE(parse_config("{}"));
        EXPECT_TRUE(read_frame());
        const std::string board = calls(call_kind_t::board);
        const std::string beginning = "zet_hal_integration_wait_for_sensor_interrupt(1, ";
        EXPECT_TRUE(board.starts_with(beginning)) << board;
        destroy_session();
        return static_cast<uint32_t>(std::stoull(board.substr(beginning.size())));
    }
};

} // namespace

TEST_F(interrupt_timeout, is_1000_ms_if_no_rate_is_set)
{
    EXPECT_EQ(timeout_of({0.0F, 0.0F, 0.0F, 0}), 1000U);
    EXPECT_EQ(timeout_of({0.0F, 0.0F, 0.0F, 16}), 1000U);
}

TEST_F(interrupt_timeout, adds_frame_period_and_duration_of_the_sweeps)
{
    EXPECT_EQ(timeout_of({10.0F, 0.0F, 2000.0F, 16}), 1108U);
    EXPECT_EQ(timeout_of({3.0F, 0.0F, 0.0F, 16}), 1333U);
    EXPECT_EQ(timeout_of({20.0F, 0.0F, 1234.5F, 7}), 1055U);
}

TEST_F(interrupt_timeout, configured_sweep_rate_is_preferred_to_the_highest_possible_one)
{
    EXPECT_EQ(timeout_of({0.0F, 100.0F, 5000.0F, 32}), 1320U);
}

TEST_F(interrupt_timeout, truncates_each_term_separately)
{
    // 0.6 ms + 0.6 ms gives 0 ms; 1.9 ms + 1.9 ms gives 2 ms.
    EXPECT_EQ(timeout_of({1666.0F, 0.0F, 1666.0F, 1}), 1000U);
    EXPECT_EQ(timeout_of({526.0F, 0.0F, 526.0F, 1}), 1002U);
}

TEST_F(interrupt_timeout, rate_that_is_not_greater_than_0_is_ignored)
{
    EXPECT_EQ(timeout_of({-10.0F, 0.0F, 0.0F, 16}), 1000U);
    EXPECT_EQ(timeout_of({not_a_number, 0.0F, 0.0F, 16}), 1000U);
    EXPECT_EQ(timeout_of({0.0F, -100.0F, 1000.0F, 16}), 1016U);
    EXPECT_EQ(timeout_of({0.0F, not_a_number, 1000.0F, 16}), 1016U);
    EXPECT_EQ(timeout_of({0.0F, not_a_number, not_a_number, 16}), 1000U);
    EXPECT_EQ(timeout_of({0.0F, 0.0F, -5.0F, 16}), 1000U);
}

TEST_F(interrupt_timeout, infinite_rate_adds_no_time)
{
    EXPECT_EQ(timeout_of({infinity, infinity, 1000.0F, 16}), 1000U);
}

TEST_F(interrupt_timeout, is_correct_for_the_largest_number_of_sweeps)
{
    EXPECT_EQ(timeout_of({0.0F, 1.0F, 0.0F, 65535}), 65536000U);
}

TEST_F(interrupt_timeout, frame_term_beyond_32_bits_saturates)
{
    EXPECT_EQ(timeout_of({1e-30F, 0.0F, 0.0F, 1}), longest);
    EXPECT_EQ(timeout_of({std::numeric_limits<float>::denorm_min(), 0.0F, 0.0F, 1}), longest);
}

TEST_F(interrupt_timeout, sweep_term_beyond_32_bits_saturates)
{
    EXPECT_EQ(timeout_of({0.0F, 1e-30F, 0.0F, 1}), longest);
    EXPECT_EQ(timeout_of({0.0F, 0.0F, std::numeric_limits<float>::denorm_min(), 65535}), longest);
}

TEST_F(interrupt_timeout, is_correct_for_terms_just_below_and_at_2_to_the_32)
{
    // 65536000 / 2^-6 is 4194304000. 65536 sweeps are not possible, so use 32768 sweeps at 2^-7 Hz.
    EXPECT_EQ(timeout_of({0.0F, 1.0F / 128.0F, 0.0F, 32768}), 4194305000U);
    // 32768000 / 2^-7 x 1.024 is 2^32: one too many for 32 bits.
    EXPECT_EQ(timeout_of({0.0F, 0.00762939453125F, 0.0F, 32768}), longest);
}

TEST_F(interrupt_timeout, sum_of_terms_that_fit_saturates)
{
    // 4194304000 ms for the frame and the same for the sweeps.
    EXPECT_EQ(timeout_of({1.0F / 4194304.0F, 1.0F / 128.0F, 0.0F, 32768}), longest);
}

TEST_F(interrupt_timeout, sum_of_one_term_and_the_fixed_part_saturates)
{
    // 1000 / 2.32830678e-7 is 4294967040, the largest float below 2^32.
    const float largest_term = 4294967040.0F;
    const float frame_rate = 1000.0F / largest_term;
    ASSERT_EQ(1000.0F / frame_rate, largest_term);
    EXPECT_EQ(timeout_of({frame_rate, 0.0F, 0.0F, 1}), longest);
}

TEST_F(interrupt_timeout, uses_the_frame_rate_of_the_session_and_the_sweeps_of_the_item)
{
    ASSERT_TRUE(parse_group(R"({"sensor_id": 1, "config": {"sweeps_per_frame": 10, "sweep_rate": 1000}},
                               {"sensor_id": 2, "config": {"frame_rate": 4, "sweeps_per_frame": 20,
                                                           "sweep_rate": 1000}},
                               {"sensor_id": 3, "config": {"frame_rate": 2}})"));
    ASSERT_TRUE(read_frame());
    EXPECT_EQ(calls(call_kind_t::board), lines({
                                             "zet_hal_integration_wait_for_sensor_interrupt(1, 1260)",
                                             "zet_hal_integration_wait_for_sensor_interrupt(2, 1270)",
                                             "zet_hal_integration_wait_for_sensor_interrupt(3, 1250)",
                                         }));
}

TEST_F(interrupt_timeout, in_a_calibration_uses_the_frame_rate_of_the_last_session)
{
    neighbours().calibration_steps = 2;
    ASSERT_TRUE(parse_config(R"({"frame_rate": 10})"));
    EXPECT_EQ(neighbours().calls.count("zet_hal_integration_wait_for_sensor_interrupt(1, 1000)"), 1U);
    destroy_session();
    ASSERT_TRUE(parse_config("{}"));
    EXPECT_EQ(neighbours().calls.count("zet_hal_integration_wait_for_sensor_interrupt(1, 1100)"), 1U)
        << "the rates are read after the items: " << calls(call_kind_t::board);
}

} // namespace backend_tests
