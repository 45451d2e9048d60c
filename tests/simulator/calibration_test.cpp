/** @file
 * Calibration: its steps, its result, and when it must be repeated.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "simulated_sensor.h"
#include "zet_config_subsweep.h"
#include "zet_hal_integration_k330.h"

namespace
{

using testing::HasSubstr;

/** Executes one step. */
bool step(simulated_sensor &sensor, bool &complete)
{
    return zet_sensor_calibrate(sensor.sensor, &complete, &sensor.cal_result, sensor.buffer.data(),
                                sensor.buffer_size());
}

TEST(calibration, takes_several_steps_with_interrupts)
{
    const simulation simulation;
    simulated_sensor sensor;
    const uint64_t start_us = now_us();
    EXPECT_EQ(sensor.calibrate(), 5);
    EXPECT_EQ(now_us() - start_us, 4U * 8000U);
    EXPECT_TRUE(zet_sensor_validate_calibration(&sensor.cal_result));
}

TEST(calibration, a_step_needs_the_interrupt_of_the_previous_step)
{
    const simulation simulation;
    simulated_sensor sensor;
    bool complete = true;
    ASSERT_TRUE(step(sensor, complete));
    EXPECT_FALSE(complete);
    EXPECT_FALSE(step(sensor, complete));
    EXPECT_THAT(simulation::log(), HasSubstr("is still busy with step 1"));
}

TEST(calibration, needs_a_reset_before_anything_else)
{
    const simulation simulation;
    simulated_sensor sensor;
    bool complete = false;
    while (!complete)
    {
        ASSERT_TRUE(step(sensor, complete));
        zet_hal_integration_wait_for_sensor_interrupt(1, 10);
    }
    EXPECT_FALSE(step(sensor, complete));
    EXPECT_FALSE(complete);
    EXPECT_THAT(simulation::log(), HasSubstr("must be reset after its calibration"));
    zet_hal_integration_sensor_disable(1);
    zet_hal_integration_sensor_enable(1);
    EXPECT_TRUE(step(sensor, complete));
}

TEST(calibration, must_be_finished_before_anything_else)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    bool complete = false;
    zet_cal_result_t intact = sensor.cal_result;
    ASSERT_TRUE(step(sensor, complete));
    EXPECT_FALSE(zet_sensor_prepare(sensor.sensor, sensor.config, &intact, sensor.buffer.data(),
                                    sensor.buffer_size()));
    EXPECT_THAT(simulation::log(), HasSubstr("in the middle of its calibration"));
    zet_hal_integration_sensor_disable(1);
    zet_hal_integration_sensor_enable(1);
    EXPECT_TRUE(zet_sensor_prepare(sensor.sensor, sensor.config, &intact, sensor.buffer.data(),
                                   sensor.buffer_size()));
}

TEST(calibration, starts_again_after_a_reset_in_the_middle)
{
    const simulation simulation;
    simulated_sensor sensor;
    bool complete = false;
    ASSERT_TRUE(step(sensor, complete));
    zet_hal_integration_sensor_disable(1);
    zet_hal_integration_sensor_enable(1);
    EXPECT_EQ(sensor.calibrate(), 5);
    EXPECT_THAT(simulation::log(), HasSubstr("was reset during its calibration"));
}

TEST(calibration, refuses_bad_arguments)
{
    const simulation simulation;
    simulated_sensor sensor;
    bool complete = false;
    void *buffer = sensor.buffer.data();
    EXPECT_FALSE(zet_sensor_calibrate(sensor.sensor, nullptr, &sensor.cal_result, buffer, 256));
    EXPECT_FALSE(zet_sensor_calibrate(sensor.sensor, &complete, nullptr, buffer, 256));
    EXPECT_FALSE(zet_sensor_calibrate(sensor.sensor, &complete, &sensor.cal_result, nullptr, 256));
    EXPECT_FALSE(zet_sensor_calibrate(sensor.sensor, &complete, &sensor.cal_result, buffer, 255));
    EXPECT_THAT(simulation::log(), HasSubstr("the buffer has 255 bytes, but needs 256"));
}

TEST(calibration, every_changed_byte_is_detected)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_GT(sensor.calibrate(), 0);
    for (size_t i = 0; i < sizeof(zet_cal_result_t); ++i)
    {
        zet_cal_result_t damaged = sensor.cal_result;
        reinterpret_cast<unsigned char *>(&damaged)[i] ^= 0x01U;
        EXPECT_FALSE(zet_sensor_validate_calibration(&damaged)) << i;
        zet_cal_info_t info = {-300};
        EXPECT_FALSE(zet_sensor_get_cal_info(&damaged, &info)) << i;
        EXPECT_EQ(info.temperature, -300);
    }
    const zet_cal_result_t nothing = {};
    EXPECT_FALSE(zet_sensor_validate_calibration(&nothing));
    EXPECT_FALSE(zet_sensor_validate_calibration(nullptr));
    zet_cal_info_t info = {};
    EXPECT_FALSE(zet_sensor_get_cal_info(nullptr, &info));
    EXPECT_FALSE(zet_sensor_get_cal_info(&sensor.cal_result, nullptr));
}

TEST(calibration, prepare_fails_with_a_damaged_result)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    sensor.cal_result.data[30] ^= 0x80U;
    EXPECT_FALSE(sensor.prepare());
    EXPECT_THAT(simulation::log(), HasSubstr("the calibration result for sensor 1 is damaged or incomplete"));
}

TEST(calibration, result_contains_its_temperature)
{
    zet_simulator_scene_t scene = empty_scene();
    scene.temperature_count = 2;
    scene.temperatures[0] = {2, -17.0F, 0.0F};
    scene.temperatures[1] = {0, 41.6F, 0.0F};
    const simulation simulation(2, &scene);
    zet_cal_info_t info = {};
    simulated_sensor first(1);
    ASSERT_GT(first.calibrate(), 0);
    ASSERT_TRUE(zet_sensor_get_cal_info(&first.cal_result, &info));
    EXPECT_EQ(info.temperature, 42);
    simulated_sensor second(2);
    ASSERT_GT(second.calibrate(), 0);
    ASSERT_TRUE(zet_sensor_get_cal_info(&second.cal_result, &info));
    EXPECT_EQ(info.temperature, -17);
}

TEST(calibration, is_needed_again_after_the_temperature_changed)
{
    zet_simulator_scene_t scene = empty_scene();
    scene.temperature_count = 1;
    scene.temperatures[0] = {0, 20.0F, 1.0F};
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 1.0F);
    ASSERT_TRUE(sensor.prepare());
    for (int second = 0; second < 20; ++second)
    {
        const frame measured = sensor.measure();
        EXPECT_EQ(measured.result.temperature, 20 + second);
        EXPECT_EQ(measured.result.calibration_needed, second >= 15) << second;
    }
}

TEST(calibration, of_another_sensor_is_accepted_with_a_warning)
{
    zet_simulator_scene_t scene = scene_with_target(1.0F, 1.0F);
    const simulation simulation(2, &scene);
    simulated_sensor first(1);
    simulated_sensor second(2);
    ASSERT_TRUE(first.prepare());
    ASSERT_TRUE(second.prepare());
    simulation::clear_log();
    first.cal_result = second.cal_result;
    ASSERT_TRUE(first.prepare());
    EXPECT_THAT(simulation::log(), HasSubstr("gets the calibration of sensor 2"));
}

} // namespace
