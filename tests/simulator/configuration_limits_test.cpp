/** @file
 * The limits of every configuration value: the last valid one, the first invalid one, and its log line.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "simulated_sensor.h"
#include "zet_config_subsweep.h"
#include "zet_nox_k330.h"

namespace
{

using testing::HasSubstr;

/** A change to the default configuration. */
struct limit_case
{
    const char *name;
    std::function<void(zet_config_t *)> change;
    const char *log; /**< part of the log line; null if the configuration is valid */
};

/** Prints a case by its name in test lists and failures. */
void PrintTo(const limit_case &tested, std::ostream *out)
{
    *out << tested.name;
}

class configuration_limits : public testing::TestWithParam<limit_case>
{
};

TEST_P(configuration_limits, are_enforced)
{
    const limit_case &tested = GetParam();
    const simulation simulation;
    zet_config_t *config = zet_config_create();
    tested.change(config);
    uint32_t size = 0;
    zet_processing_metadata_t metadata = {};
    const bool expected = tested.log == nullptr;
    EXPECT_EQ(zet_nox_get_buffer_size(config, &size), expected) << simulation::log();
    EXPECT_EQ(size != 0U, expected);
    EXPECT_THAT(simulation::log(), HasSubstr(expected ? "" : tested.log));
    zet_processing_t *processing = zet_processing_create(config, &metadata);
    EXPECT_EQ(processing != nullptr, expected);
    zet_processing_destroy(processing);
    zet_config_destroy(config);
}

const float not_a_number = std::numeric_limits<float>::quiet_NaN();
const float infinite = std::numeric_limits<float>::infinity();

zet_config_profile_t profile(int value)
{
    return static_cast<zet_config_profile_t>(value);
}

zet_config_prf_t prf(int value)
{
    return static_cast<zet_config_prf_t>(value);
}

zet_config_idle_state_t idle(int value)
{
    return static_cast<zet_config_idle_state_t>(value);
}

const limit_case cases[] = {
    {"defaults", [](zet_config_t *) {}, nullptr},
    {"no_sub_sweep", [](zet_config_t *c) { zet_config_num_subsweeps_set(c, 0); },
     "the number of sub-sweeps is 0, but must be 1 to 4"},
    {"four_sub_sweeps", [](zet_config_t *c) { zet_config_num_subsweeps_set(c, 4); }, nullptr},
    {"five_sub_sweeps", [](zet_config_t *c) { zet_config_num_subsweeps_set(c, 5); },
     "the number of sub-sweeps is 5, but must be 1 to 4"},
    {"no_sweep", [](zet_config_t *c) { zet_config_sweeps_per_frame_set(c, 0); },
     "sweeps_per_frame is 0, but must be 1 to 4095"},
    {"most_sweeps",
     [](zet_config_t *c) {
         zet_config_sweeps_per_frame_set(c, 4095);
         zet_config_subsweep_num_points_set(c, 4, 0);
     },
     nullptr},
    {"too_many_sweeps", [](zet_config_t *c) { zet_config_sweeps_per_frame_set(c, 4096); },
     "sweeps_per_frame is 4096, but must be 1 to 4095"},
    {"no_point", [](zet_config_t *c) { zet_config_subsweep_num_points_set(c, 0, 0); },
     "num_points of sub-sweep 0 is 0, but must be 1 to 4095"},
    {"too_many_points", [](zet_config_t *c) { zet_config_subsweep_num_points_set(c, 4096, 0); },
     "num_points of sub-sweep 0 is 4096, but must be 1 to 4095"},
    {"most_samples",
     [](zet_config_t *c) {
         zet_config_sweeps_per_frame_set(c, 129);
         zet_config_subsweep_num_points_set(c, 127, 0);
     },
     nullptr},
    {"too_many_samples",
     [](zet_config_t *c) {
         zet_config_sweeps_per_frame_set(c, 128);
         zet_config_subsweep_num_points_set(c, 128, 0);
     },
     "a frame has 16384 samples (points times sweeps), but must have at most 16383"},
    {"lowest_start", [](zet_config_t *c) { zet_config_subsweep_start_point_set(c, -1000, 0); }, nullptr},
    {"start_too_low", [](zet_config_t *c) { zet_config_subsweep_start_point_set(c, -1001, 0); },
     "start_point of sub-sweep 0 is -1001, but must be -1000 to 20000"},
    {"start_too_high", [](zet_config_t *c) { zet_config_subsweep_start_point_set(c, 20001, 0); },
     "start_point of sub-sweep 0 is 20001, but must be -1000 to 20000"},
    {"start_far_too_high",
     [](zet_config_t *c) { zet_config_subsweep_start_point_set(c, std::numeric_limits<int32_t>::max(), 0); },
     "start_point of sub-sweep 0 is 2147483647"},
    {"no_step", [](zet_config_t *c) { zet_config_subsweep_step_length_set(c, 0, 0); },
     "step_length of sub-sweep 0 is 0, but must be 1 to 1000"},
    {"longest_step",
     [](zet_config_t *c) {
         zet_config_subsweep_step_length_set(c, 1000, 0);
         zet_config_subsweep_num_points_set(c, 3, 0);
     },
     nullptr},
    {"step_too_long", [](zet_config_t *c) { zet_config_subsweep_step_length_set(c, 1001, 0); },
     "step_length of sub-sweep 0 is 1001, but must be 1 to 1000"},
    {"profile_0", [](zet_config_t *c) { zet_config_subsweep_profile_set(c, profile(0), 0); },
     "profile of sub-sweep 0 is 0, but must be 1 to 5"},
    {"profile_5", [](zet_config_t *c) { zet_config_subsweep_profile_set(c, profile(5), 0); }, nullptr},
    {"profile_6", [](zet_config_t *c) { zet_config_subsweep_profile_set(c, profile(6), 0); },
     "profile of sub-sweep 0 is 6, but must be 1 to 5"},
    {"no_hwaas", [](zet_config_t *c) { zet_config_subsweep_hwaas_set(c, 0, 0); },
     "hwaas of sub-sweep 0 is 0, but must be 1 to 511"},
    {"most_hwaas", [](zet_config_t *c) { zet_config_subsweep_hwaas_set(c, 511, 0); }, nullptr},
    {"too_many_hwaas", [](zet_config_t *c) { zet_config_subsweep_hwaas_set(c, 512, 0); },
     "hwaas of sub-sweep 0 is 512, but must be 1 to 511"},
    {"highest_gain", [](zet_config_t *c) { zet_config_subsweep_receiver_gain_set(c, 23, 0); }, nullptr},
    {"gain_too_high", [](zet_config_t *c) { zet_config_subsweep_receiver_gain_set(c, 24, 0); },
     "receiver_gain of sub-sweep 0 is 24, but must be 0 to 23"},
    {"prf_6", [](zet_config_t *c) { zet_config_subsweep_prf_set(c, prf(6), 0); },
     "prf of sub-sweep 0 is 6, but must be 0 to 5"},
    {"unused_sub_sweeps_do_not_matter", [](zet_config_t *c) { zet_config_subsweep_prf_set(c, prf(6), 1); },
     nullptr},
    {"second_sub_sweep",
     [](zet_config_t *c) {
         zet_config_num_subsweeps_set(c, 2);
         zet_config_subsweep_hwaas_set(c, 600, 1);
     },
     "hwaas of sub-sweep 1 is 600"},
    {"last_unambiguous_point", [](zet_config_t *c) { zet_config_subsweep_start_point_set(c, 3843 - 159, 0); },
     nullptr},
    {"beyond_the_unambiguous_range",
     [](zet_config_t *c) { zet_config_subsweep_start_point_set(c, 3843 - 158, 0); },
     "the last point of sub-sweep 0 is 3844, but its prf allows at most 3843"},
    {"a_lower_prf_allows_farther_points",
     [](zet_config_t *c) {
         zet_config_subsweep_start_point_set(c, 11000, 0);
         zet_config_subsweep_prf_set(c, ZET_CONFIG_PRF_5_2_MHZ, 0);
     },
     nullptr},
    {"frame_idle_3", [](zet_config_t *c) { zet_config_inter_frame_idle_state_set(c, idle(3)); },
     "inter_frame_idle_state is 3, but must be 0 to 2"},
    {"sweep_idle_3", [](zet_config_t *c) { zet_config_inter_sweep_idle_state_set(c, idle(3)); },
     "inter_sweep_idle_state is 3, but must be 0 to 2"},
    {"deeper_between_sweeps",
     [](zet_config_t *c) {
         zet_config_inter_frame_idle_state_set(c, ZET_CONFIG_IDLE_STATE_READY);
         zet_config_inter_sweep_idle_state_set(c, ZET_CONFIG_IDLE_STATE_SLEEP);
     },
     "inter_sweep_idle_state is 1, but must not be deeper than inter_frame_idle_state, which is 2"},
    {"negative_sweep_rate", [](zet_config_t *c) { zet_config_sweep_rate_set(c, -1.0F); },
     "sweep_rate is -1 Hz, but must be 0 or 0.01 to 1000000 Hz"},
    {"sweep_rate_nan", [](zet_config_t *c) { zet_config_sweep_rate_set(c, not_a_number); },
     "sweep_rate is NaN Hz"},
    {"infinite_sweep_rate", [](zet_config_t *c) { zet_config_sweep_rate_set(c, infinite); },
     "sweep_rate is more than 1e9 Hz"},
    {"sweep_rate_too_high", [](zet_config_t *c) { zet_config_sweep_rate_set(c, 20000.0F); },
     "sweep_rate is 20000 Hz, but with this num_points, hwaas and prf it must be at most 10"},
    {"infinite_frame_rate", [](zet_config_t *c) { zet_config_frame_rate_set(c, -infinite); },
     "frame_rate is less than -1e9 Hz"},
    {"frame_rate_too_low", [](zet_config_t *c) { zet_config_frame_rate_set(c, 0.001F); },
     "frame_rate is 0.001 Hz, but must be 0 or 0.01"},
    {"frame_rate_that_is_nearly_0", [](zet_config_t *c) { zet_config_frame_rate_set(c, 1e-9F); },
     "frame_rate is 1e-9 Hz, but must be 0 or 0.01"},
    {"negative_frame_rate_that_is_nearly_0", [](zet_config_t *c) { zet_config_frame_rate_set(c, -1.5e-9F); },
     "frame_rate is -1.5e-9 Hz, but must be 0 or 0.01"},
    {"frame_rate_that_is_nearly_the_lowest",
     [](zet_config_t *c) { zet_config_frame_rate_set(c, 0.0099999F); },
     "frame_rate is 9.9999e-3 Hz, but must be 0 or 0.01"},
    {"sweep_rate_that_is_nearly_the_highest",
     [](zet_config_t *c) { zet_config_sweep_rate_set(c, 1000000.1F); },
     "sweep_rate is 1000000.125 Hz, but must be 0 or 0.01 to 1000000 Hz"},
    {"continuous_sweeps_of_nearly_equal_rates",
     [](zet_config_t *c) {
         zet_config_continuous_sweep_mode_set(c, true);
         zet_config_frame_rate_set(c, 0.01F);
         zet_config_sweep_rate_set(c, 0.0102F);
     },
     "which is 0.01 Hz, but it is 1.02e-2 Hz"},
    {"frame_rate_too_high",
     [](zet_config_t *c) {
         zet_config_frame_rate_set(c, 100.0F);
         zet_config_sweeps_per_frame_set(c, 101);
         zet_config_sweep_rate_set(c, 1000.0F);
     },
     "frame_rate is 100 Hz, but a frame takes 100394 us, so it must be at most 9.96 Hz"},
    {"continuous_sweeps",
     [](zet_config_t *c) {
         zet_config_continuous_sweep_mode_set(c, true);
         zet_config_frame_rate_set(c, 10.0F);
         zet_config_sweeps_per_frame_set(c, 16);
         zet_config_sweep_rate_set(c, 160.0F);
     },
     nullptr},
    {"continuous_sweeps_of_unequal_rates",
     [](zet_config_t *c) {
         zet_config_continuous_sweep_mode_set(c, true);
         zet_config_frame_rate_set(c, 10.0F);
         zet_config_sweeps_per_frame_set(c, 16);
         zet_config_sweep_rate_set(c, 170.0F);
     },
     "continuous_sweep_mode needs a sweep_rate of frame_rate times sweeps_per_frame, which is 160 Hz, but it "
     "is "
     "170 Hz"},
    {"continuous_sweeps_without_rate", [](zet_config_t *c) { zet_config_continuous_sweep_mode_set(c, true); },
     "continuous_sweep_mode needs"},
};

INSTANTIATE_TEST_SUITE_P(values, configuration_limits, testing::ValuesIn(cases),
                         [](const auto &tested) { return tested.param.name; });

TEST(configuration, names_a_highest_sweep_rate_that_is_accepted)
{
    const simulation simulation;
    zet_config_t *config = zet_config_create();
    uint32_t size = 0;
    for (uint16_t hwaas = 1; hwaas <= 511; ++hwaas)
    {
        zet_config_subsweep_hwaas_set(config, hwaas, 0);
        zet_config_sweep_rate_set(config, 1.0e6F);
        simulation::clear_log();
        ASSERT_FALSE(zet_nox_get_buffer_size(config, &size));
        const std::string log = simulation::log();
        const std::string words = "at most ";
        ASSERT_THAT(log, HasSubstr(words));
        const std::string highest = log.substr(log.find(words) + words.size());
        zet_config_sweep_rate_set(config, std::stof(highest));
        EXPECT_TRUE(zet_nox_get_buffer_size(config, &size)) << highest;
    }
    zet_config_destroy(config);
}

TEST(configuration, buffer_has_room_for_the_header_and_the_samples)
{
    const simulation simulation;
    zet_config_t *config = zet_config_create();
    uint32_t of_160 = 0;
    uint32_t of_1600 = 0;
    ASSERT_TRUE(zet_nox_get_buffer_size(config, &of_160));
    zet_config_sweeps_per_frame_set(config, 10);
    ASSERT_TRUE(zet_nox_get_buffer_size(config, &of_1600));
    EXPECT_EQ(of_1600 - of_160, 1440U * sizeof(zet_int16_complex_t));
    EXPECT_GE(of_160, 160U * sizeof(zet_int16_complex_t));
    zet_config_destroy(config);
}

} // namespace
