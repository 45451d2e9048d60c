/** @file
 * Complete sessions: no leaks, and reproducible results.
 */
#include <gtest/gtest.h>

#include "simulated_sensor.h"
#include "zet_config_subsweep.h"

namespace
{

/** The first frames of a session with the built-in scene. */
std::vector<std::vector<std::complex<float>>> first_frames(uint64_t seed)
{
    const simulation simulation(1, nullptr, seed);
    simulated_sensor sensor;
    zet_config_sweeps_per_frame_set(sensor.config, 4);
    zet_config_frame_rate_set(sensor.config, 30.0F);
    EXPECT_TRUE(sensor.prepare());
    std::vector<std::vector<std::complex<float>>> frames;
    for (int i = 0; i < 5; ++i)
    {
        frames.push_back(sensor.measure().samples);
    }
    return frames;
}

TEST(session, frees_its_memory)
{
    {
        const simulation simulation;
        simulated_sensor sensor;
        ASSERT_TRUE(sensor.prepare());
        sensor.measure();
    }
    EXPECT_EQ(memory().live, 0U);
    EXPECT_GT(memory().peak, 0U);
}

TEST(session, is_identical_with_the_same_seed)
{
    EXPECT_EQ(first_frames(7), first_frames(7));
}

TEST(session, is_different_with_another_seed)
{
    EXPECT_NE(first_frames(7), first_frames(8));
}

TEST(session, has_different_noise_in_each_session)
{
    const zet_simulator_scene_t scene = empty_scene();
    const simulation simulation(1, &scene);
    std::vector<std::complex<float>> first;
    {
        simulated_sensor sensor;
        ASSERT_TRUE(sensor.prepare());
        first = sensor.measure().samples;
    }
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NE(sensor.measure().samples, first);
}

TEST(session, stores_sub_sweeps_one_after_the_other)
{
    const zet_simulator_scene_t scene = scene_with_target(0.5F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_num_subsweeps_set(sensor.config, 3);
    zet_config_sweeps_per_frame_set(sensor.config, 2);
    const uint16_t lengths[] = {30, 100, 7};
    for (uint8_t i = 0; i < 3; ++i)
    {
        zet_config_subsweep_start_point_set(sensor.config, 400 - 200 * (i % 2) - i, i);
        zet_config_subsweep_num_points_set(sensor.config, lengths[i], i);
        zet_config_subsweep_hwaas_set(sensor.config, 511, i);
    }
    zet_config_subsweep_start_point_set(sensor.config, 150, 1);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_EQ(sensor.metadata.sweep_data_length, 137U);
    EXPECT_EQ(sensor.metadata.frame_data_length, 274U);
    EXPECT_EQ(sensor.metadata.subsweep_data_offset[1], 30U);
    EXPECT_EQ(sensor.metadata.subsweep_data_offset[2], 130U);
    EXPECT_EQ(sensor.metadata.subsweep_data_length[2], 7U);
    EXPECT_EQ(sensor.metadata.subsweep_data_length[3], 0U);

    const frame measured = sensor.measure();
    const auto in_second_sweep = measured.samples.begin() + 137;
    const std::vector<std::complex<float>> middle(in_second_sweep + 30, in_second_sweep + 130);
    EXPECT_NEAR(static_cast<double>(strongest(middle)), 50.0, 1.0);
}

} // namespace
