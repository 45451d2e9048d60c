/** @file
 * Several boards in one scene: its clock, their places, their noise.
 */
#include <gtest/gtest.h>

#include <complex>
#include <string>
#include <vector>

#include "scene_text.h"
#include "simulated_sensor.h"
#include "zet_config_subsweep.h"

namespace
{

int64_t scene_time_us = 0;

int64_t scene_now_us()
{
    return scene_time_us;
}

/** Options of a board that sees a scene with a clock of its own. */
zet_simulator_options_t board_with(const zet_simulator_scene_t &scene, uint16_t board = 1)
{
    zet_simulator_options_t options = {};
    options.sensor_count = 1;
    options.seed = 1;
    options.clock = zet_simulator_virtual_clock();
    options.scene = &scene;
    options.scene_now_us = scene_now_us;
    options.board = board;
    return options;
}

TEST(boards, see_a_scene_at_the_time_of_its_clock)
{
    zet_simulator_scene_t scene = empty_scene();
    scene.temperature_count = 1;
    scene.temperatures[0] = {0, 20.0F, 10.0F};
    scene_time_us = 2000000;
    const simulation simulation(board_with(scene));
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    zet_cal_info_t info = {};
    ASSERT_TRUE(zet_sensor_get_cal_info(&sensor.cal_result, &info));
    EXPECT_EQ(info.temperature, 40) << "before the first frame";
    scene_time_us = 3000000;
    EXPECT_EQ(sensor.measure().result.temperature, 50);
    advance_us(1000000);
    EXPECT_EQ(sensor.measure().result.temperature, 60) << "a second after the first frame";
}

TEST(boards, with_a_wrong_clock_see_a_scene_at_its_own_time)
{
    zet_simulator_scene_t scene = empty_scene();
    scene.temperature_count = 1;
    scene.temperatures[0] = {0, 20.0F, 10.0F};
    for (const double error : {1.0, -0.5})
    {
        scene_time_us = 3000000;
        auto options = board_with(scene);
        options.clock_error = error;
        const simulation simulation(options);
        simulated_sensor sensor;
        ASSERT_TRUE(sensor.prepare());
        EXPECT_EQ(sensor.measure().result.temperature, 50);
        // In a second of the scene the clock advances by two seconds, or by half a second.
        const auto second_us = static_cast<uint64_t>(1000000 * (1.0 + error));
        advance_us(second_us);
        EXPECT_EQ(sensor.measure().result.temperature, 60) << error;
    }
}

TEST(boards, see_the_beginning_of_a_scene_that_has_not_started)
{
    zet_simulator_scene_t scene = empty_scene();
    scene.temperature_count = 1;
    scene.temperatures[0] = {0, 20.0F, 10.0F};
    scene_time_us = -5000000;
    const simulation simulation(board_with(scene));
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    EXPECT_EQ(sensor.measure().result.temperature, 20);
    advance_us(6000000);
    EXPECT_EQ(sensor.measure().result.temperature, 30);
}

/** The noise of sensor 1 of a board. */
std::vector<std::complex<float>> noise_of(uint16_t board)
{
    const zet_simulator_scene_t scene = empty_scene();
    const simulation simulation(board_with(scene, board));
    simulated_sensor sensor;
    EXPECT_TRUE(sensor.prepare());
    return sensor.measure().samples;
}

TEST(boards, with_the_same_seed_have_different_noise)
{
    EXPECT_EQ(noise_of(1), noise_of(1));
    EXPECT_NE(noise_of(1), noise_of(2));
    EXPECT_NE(noise_of(0), noise_of(1));
}

/** The place of a sensor along x on a board; @p fault receives the message if the scene is refused for it. */
float x_of(const char *sensors, uint16_t board, zet_sensor_id_t sensor_id, std::string &fault)
{
    zet_simulator_scene_t scene = scene_of(std::string(R"({"sensors": )") + sensors + "}");
    char error[256] = "";
    if (!zet_simulator_scene_select_board(&scene, board, error, sizeof(error)))
    {
        fault = error;
        return 0.0F;
    }
    fault.clear();
    for (uint32_t i = 0; i < scene.pose_count; ++i)
    {
        if (scene.poses[i].sensor_id == sensor_id)
        {
            return scene.poses[i].place_m[0];
        }
    }
    return -1.0F;
}

TEST(boards, have_the_sensors_with_their_number_and_those_of_every_board)
{
    std::string fault;
    const char *sensors = R"([{"x_m": 9, "sensor": 2}, {"board": 1, "x_m": 1}, {"board": 2, "x_m": 2}])";
    EXPECT_EQ(x_of(sensors, 1, 0, fault), 1.0F);
    EXPECT_EQ(x_of(sensors, 2, 0, fault), 2.0F);
    EXPECT_EQ(x_of(sensors, 2, 2, fault), 9.0F);
    EXPECT_EQ(x_of(R"([{"x_m": 3}])", 7, 0, fault), 3.0F);
    EXPECT_EQ(x_of(R"([{"x_m": 3}])", 0, 0, fault), 3.0F);
    EXPECT_EQ(fault, "");
}

TEST(boards, that_a_scene_does_not_place_are_refused)
{
    std::string fault;
    const char *sensors = R"([{"board": 4, "x_m": 1}, {"board": 5, "x_m": 2}])";
    x_of(sensors, 3, 0, fault);
    EXPECT_EQ(fault, "sensors has entries for boards, such as 5, but none for board 3");
    x_of(sensors, 0, 0, fault);
    EXPECT_EQ(fault, "sensors has entries for boards, such as 5, but none for board 0");
}

} // namespace
