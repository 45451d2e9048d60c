/** @file
 * Misuse of the sensor library: each call fails, logs the reason, and does not crash.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "simulated_sensor.h"
#include "zet_config_cca.h"
#include "zet_config_internal.h"
#include "zet_config_subsweep.h"
#include "zet_diagnostic_log.h"
#include "zet_hal_integration_k330.h"
#include "zet_integration.h"
#include "zet_nox_k330.h"
#include "zet_probes.h"
#include "zet_processing_cca.h"

namespace
{

using testing::HasSubstr;

/** Expects the log to contain a text, and empties the log. */
void expect_logged(const std::string &text)
{
    EXPECT_THAT(simulation::log(), HasSubstr(text));
    simulation::clear_log();
}

TEST(state, board_cannot_be_started_twice_or_without_a_clock)
{
    zet_simulator_options_t options = {};
    EXPECT_FALSE(zet_simulator_start(nullptr));
    EXPECT_FALSE(zet_simulator_start(&options));
    options.clock.now_us = zet_simulator_virtual_clock().now_us;
    EXPECT_FALSE(zet_simulator_start(&options));
    EXPECT_EQ(zet_hal_nox_integration_get_implementation(), nullptr);
    const simulation simulation(3);
    EXPECT_EQ(zet_hal_integration_sensor_count(), 3U);
    options.clock = zet_simulator_virtual_clock();
    EXPECT_FALSE(zet_simulator_start(&options));
}

TEST(state, board_record_must_be_complete)
{
    const simulation simulation;
    EXPECT_FALSE(zet_nox_hal_register(nullptr));
    const zet_hal_k330_t complete = *zet_hal_nox_integration_get_implementation();
    zet_hal_k330_t incomplete = complete;
    incomplete.log = nullptr;
    EXPECT_FALSE(zet_nox_hal_register(&incomplete));
    incomplete = complete;
    incomplete.mem_alloc = nullptr;
    EXPECT_FALSE(zet_nox_hal_register(&incomplete));
    incomplete = complete;
    incomplete.mem_free = nullptr;
    EXPECT_FALSE(zet_nox_hal_register(&incomplete));
    incomplete = complete;
    incomplete.transfer = nullptr;
    EXPECT_FALSE(zet_nox_hal_register(&incomplete));
}

TEST(state, a_sensor_is_connected_only_if_powered_and_enabled)
{
    const simulation simulation(2);
    EXPECT_FALSE(zet_sensor_connected(1));
    expect_logged("has no power");
    zet_hal_integration_sensor_supply_on(1);
    EXPECT_FALSE(zet_sensor_connected(1));
    EXPECT_EQ(zet_sensor_create(1), nullptr);
    zet_hal_integration_sensor_enable(1);
    EXPECT_TRUE(zet_sensor_connected(1));
    EXPECT_FALSE(zet_sensor_connected(2));
    EXPECT_FALSE(zet_sensor_connected(0));
    EXPECT_FALSE(zet_sensor_connected(3));
    zet_hal_integration_sensor_disable(1);
    EXPECT_FALSE(zet_sensor_connected(1));
}

TEST(state, invalid_positions_are_logged)
{
    const simulation simulation(2);
    zet_hal_integration_sensor_supply_on(3);
    expect_logged("sensor 3 does not exist; the board has 2");
    zet_hal_integration_sensor_enable(0);
    expect_logged("sensor 0 does not exist");
    zet_hal_integration_sensor_disable(7);
    expect_logged("sensor 7 does not exist");
    zet_hal_integration_sensor_supply_off(7);
    expect_logged("sensor 7 does not exist");
    EXPECT_FALSE(zet_hal_integration_wait_for_sensor_interrupt(7, 1));
    expect_logged("sensor 7 does not exist");
}

TEST(state, a_sensor_has_only_one_handle)
{
    const simulation simulation;
    const simulated_sensor sensor;
    EXPECT_EQ(zet_sensor_create(1), nullptr);
    expect_logged("already has a handle");
}

TEST(state, null_handles_fail_and_are_logged)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    bool complete = true;
    uint32_t size = 77;
    float value = -1.0F;
    zet_processing_metadata_t metadata = {};
    zet_processing_result_t result = {};
    void *buffer = sensor.buffer.data();

    EXPECT_FALSE(zet_sensor_calibrate(nullptr, &complete, &sensor.cal_result, buffer, sensor.buffer_size()));
    EXPECT_FALSE(complete);
    expect_logged("zet_sensor_calibrate: the sensor is null");
    EXPECT_FALSE(
        zet_sensor_prepare(nullptr, sensor.config, &sensor.cal_result, buffer, sensor.buffer_size()));
    expect_logged("zet_sensor_prepare: the sensor is null");
    EXPECT_FALSE(
        zet_sensor_prepare(sensor.sensor, nullptr, &sensor.cal_result, buffer, sensor.buffer_size()));
    expect_logged("zet_sensor_prepare: the configuration is null");
    EXPECT_FALSE(zet_sensor_prepare(sensor.sensor, sensor.config, nullptr, buffer, sensor.buffer_size()));
    expect_logged("is damaged or incomplete");
    EXPECT_FALSE(
        zet_sensor_prepare(sensor.sensor, sensor.config, &sensor.cal_result, nullptr, sensor.buffer_size()));
    expect_logged("zet_sensor_prepare: the buffer is null");
    EXPECT_FALSE(zet_sensor_measure(nullptr));
    expect_logged("zet_sensor_measure: the sensor is null");
    EXPECT_FALSE(zet_sensor_read(nullptr, buffer, sensor.buffer_size()));
    expect_logged("zet_sensor_read: the sensor is null");
    zet_sensor_status(nullptr);
    expect_logged("zet_sensor_status: the sensor is null");
    EXPECT_FALSE(zet_nox_get_buffer_size(nullptr, &size));
    EXPECT_EQ(size, 77U);
    expect_logged("zet_nox_get_buffer_size: the configuration is null");
    EXPECT_FALSE(zet_nox_get_buffer_size(sensor.config, nullptr));
    expect_logged("the pointer for the size is null");
    EXPECT_EQ(zet_processing_create(nullptr, &metadata), nullptr);
    expect_logged("zet_processing_create: the configuration is null");
    EXPECT_EQ(zet_processing_create(sensor.config, nullptr), nullptr);
    expect_logged("the pointer for the metadata is null");
    EXPECT_FALSE(zet_processing_cca_check(nullptr, buffer, &value));
    expect_logged("zet_processing_cca_check: the processing is null");
    EXPECT_FALSE(zet_processing_cca_check(sensor.processing, buffer, nullptr));
    expect_logged("the pointer for the value is null");
    EXPECT_EQ(value, -1.0F);
    zet_processing_execute(sensor.processing, buffer, nullptr);
    expect_logged("the pointer for the result is null");
    zet_processing_execute(nullptr, buffer, &result);
    expect_logged("zet_processing_execute: the processing is null");
    EXPECT_EQ(static_cast<void *>(result.frame), buffer);
    zet_processing_execute(sensor.processing, nullptr, &result);
    expect_logged("zet_processing_execute: the buffer is null");
    EXPECT_EQ(result.frame, nullptr);
}

TEST(state, destroying_null_does_nothing)
{
    const simulation simulation;
    zet_config_destroy(nullptr);
    zet_sensor_destroy(nullptr);
    zet_processing_destroy(nullptr);
    zet_integration_mem_free(nullptr);
    EXPECT_EQ(simulation::log(), "");
}

TEST(state, every_setter_refuses_a_null_configuration)
{
    const simulation simulation;
    zet_config_num_subsweeps_set(nullptr, 1);
    zet_config_sweeps_per_frame_set(nullptr, 1);
    zet_config_sweep_rate_set(nullptr, 1.0F);
    zet_config_frame_rate_set(nullptr, 1.0F);
    zet_config_continuous_sweep_mode_set(nullptr, true);
    zet_config_double_buffering_set(nullptr, true);
    zet_config_inter_frame_idle_state_set(nullptr, ZET_CONFIG_IDLE_STATE_READY);
    zet_config_inter_sweep_idle_state_set(nullptr, ZET_CONFIG_IDLE_STATE_READY);
    zet_config_subtract_in_buffer_set(nullptr, true);
    zet_config_enable_tx_set(nullptr, true);
    zet_config_enable_cca_set(nullptr, true);
    zet_config_subsweep_start_point_set(nullptr, 1, 0);
    zet_config_subsweep_num_points_set(nullptr, 1, 0);
    zet_config_subsweep_step_length_set(nullptr, 1, 0);
    zet_config_subsweep_profile_set(nullptr, ZET_CONFIG_PROFILE_1, 0);
    zet_config_subsweep_hwaas_set(nullptr, 1, 0);
    zet_config_subsweep_receiver_gain_set(nullptr, 1, 0);
    zet_config_subsweep_enable_tx_set(nullptr, true, 0);
    zet_config_subsweep_enable_loopback_set(nullptr, true, 0);
    zet_config_subsweep_phase_enhancement_set(nullptr, true, 0);
    zet_config_subsweep_iq_imbalance_compensation_set(nullptr, true, 0);
    zet_config_subsweep_prf_set(nullptr, ZET_CONFIG_PRF_5_2_MHZ, 0);
    EXPECT_EQ(zet_config_num_subsweeps_get(nullptr), 0U);
    EXPECT_EQ(zet_config_sweeps_per_frame_get(nullptr), 0U);
    EXPECT_EQ(zet_config_sweep_rate_get(nullptr), 0.0F);
    EXPECT_EQ(zet_config_frame_rate_get(nullptr), 0.0F);
    size_t lines = 0;
    const std::string needle = ": the configuration is null\n";
    for (size_t at = simulation::log().find(needle); at != std::string::npos;
         at = simulation::log().find(needle, at + 1))
    {
        ++lines;
    }
    EXPECT_EQ(lines, 26U);
}

TEST(state, getters_return_the_values_that_were_set)
{
    const simulation simulation;
    const simulated_sensor sensor;
    EXPECT_EQ(zet_config_num_subsweeps_get(sensor.config), 1U);
    EXPECT_EQ(zet_config_sweeps_per_frame_get(sensor.config), 1U);
    EXPECT_EQ(zet_config_sweep_rate_get(sensor.config), 0.0F);
    EXPECT_EQ(zet_config_frame_rate_get(sensor.config), 0.0F);
    zet_config_num_subsweeps_set(sensor.config, 200);
    zet_config_sweeps_per_frame_set(sensor.config, 60000);
    zet_config_sweep_rate_set(sensor.config, -3.5F);
    zet_config_frame_rate_set(sensor.config, 12.25F);
    EXPECT_EQ(zet_config_num_subsweeps_get(sensor.config), 200U);
    EXPECT_EQ(zet_config_sweeps_per_frame_get(sensor.config), 60000U);
    EXPECT_EQ(zet_config_sweep_rate_get(sensor.config), -3.5F);
    EXPECT_EQ(zet_config_frame_rate_get(sensor.config), 12.25F);
}

TEST(state, a_fifth_sub_sweep_is_refused)
{
    const simulation simulation;
    const simulated_sensor sensor;
    zet_config_subsweep_hwaas_set(sensor.config, 1, 4);
    expect_logged("sub-sweep 4 does not exist; use 0 to 3");
}

TEST(state, handles_are_refused_after_they_are_destroyed)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    zet_config_t *config = sensor.config;
    zet_sensor_t *handle = sensor.sensor;
    zet_processing_t *processing = sensor.processing;
    void *buffer = sensor.buffer.data();
    zet_processing_destroy(processing);
    zet_sensor_destroy(handle);
    zet_config_destroy(config);
    sensor.config = nullptr;
    sensor.sensor = nullptr;
    sensor.processing = nullptr;

    zet_processing_result_t result = {};
    zet_processing_execute(processing, buffer, &result);
    expect_logged("the processing handle is invalid or has been destroyed");
    EXPECT_FALSE(zet_sensor_measure(handle));
    expect_logged("the sensor handle is invalid or has been destroyed");
    EXPECT_EQ(zet_config_sweep_rate_get(config), 0.0F);
    expect_logged("the configuration handle is invalid or has been destroyed");
    zet_config_destroy(config);
    expect_logged("zet_config_destroy");
    zet_sensor_destroy(handle);
    expect_logged("zet_sensor_destroy");
    zet_processing_destroy(processing);
    expect_logged("zet_processing_destroy");
}

TEST(state, a_handle_of_another_kind_is_refused)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    EXPECT_FALSE(zet_sensor_measure(reinterpret_cast<zet_sensor_t *>(sensor.config)));
    expect_logged("the sensor handle is invalid or has been destroyed");
}

TEST(state, measuring_needs_a_prepare)
{
    const simulation simulation;
    const simulated_sensor sensor;
    EXPECT_FALSE(zet_sensor_measure(sensor.sensor));
    expect_logged("is not prepared");
}

TEST(state, a_reset_undoes_the_prepare)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    zet_hal_integration_sensor_disable(1);
    EXPECT_FALSE(zet_sensor_measure(sensor.sensor));
    expect_logged("is not enabled");
    zet_hal_integration_sensor_enable(1);
    EXPECT_FALSE(zet_sensor_measure(sensor.sensor));
    expect_logged("was reset since it was prepared");
}

TEST(state, an_unpowered_sensor_cannot_be_prepared)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    zet_hal_integration_sensor_disable(1);
    zet_hal_integration_sensor_supply_off(1);
    EXPECT_FALSE(sensor.prepare());
    expect_logged("zet_sensor_prepare: sensor 1 has no power");
    bool complete = false;
    EXPECT_FALSE(zet_sensor_calibrate(sensor.sensor, &complete, &sensor.cal_result, sensor.buffer.data(),
                                      sensor.buffer_size()));
    expect_logged("zet_sensor_calibrate: sensor 1 has no power");
}

TEST(state, a_changed_configuration_must_be_prepared_again)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    zet_config_enable_tx_set(sensor.config, false);
    EXPECT_FALSE(zet_sensor_measure(sensor.sensor));
    expect_logged("was changed since it was prepared");
    ASSERT_TRUE(sensor.prepare());
    EXPECT_TRUE(zet_sensor_measure(sensor.sensor));
}

TEST(state, a_configuration_must_not_be_destroyed_before_its_measurements)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    zet_config_destroy(sensor.config);
    sensor.config = nullptr;
    EXPECT_FALSE(zet_sensor_measure(sensor.sensor));
    expect_logged("the configuration handle is invalid or has been destroyed");
}

TEST(state, reading_needs_a_finished_measurement)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    void *buffer = sensor.buffer.data();
    EXPECT_FALSE(zet_sensor_read(sensor.sensor, buffer, sensor.buffer_size()));
    expect_logged("has no frame to read");
    ASSERT_TRUE(zet_sensor_measure(sensor.sensor));
    EXPECT_FALSE(zet_sensor_read(sensor.sensor, buffer, sensor.buffer_size()));
    expect_logged("is still measuring");
    ASSERT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
    EXPECT_FALSE(zet_sensor_read(sensor.sensor, buffer, sensor.buffer_size() - 1));
    expect_logged("but needs");
    EXPECT_FALSE(zet_sensor_read(sensor.sensor, nullptr, sensor.buffer_size()));
    expect_logged("the buffer is null");
    EXPECT_TRUE(zet_sensor_read(sensor.sensor, buffer, sensor.buffer_size()));
    EXPECT_FALSE(zet_sensor_read(sensor.sensor, buffer, sensor.buffer_size()));
    expect_logged("has no frame to read; measure one first");
}

/** Whether the next wait is given up. */
bool gives_up;

bool wait_or_give_up_once(uint64_t time_us)
{
    zet_simulator_virtual_clock().sleep_until_us(time_us);
    return !std::exchange(gives_up, false);
}

TEST(state, a_wait_that_the_port_gives_up_fails_and_the_interrupt_still_comes)
{
    const simulation simulation(1, nullptr, 1, zet_simulator_virtual_clock(), wait_or_give_up_once);
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    ASSERT_TRUE(zet_sensor_measure(sensor.sensor));
    gives_up = true;
    EXPECT_FALSE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
    EXPECT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
    EXPECT_FALSE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000)) << "no interrupt is expected";
    EXPECT_TRUE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
}

TEST(state, a_sensor_measures_one_frame_at_a_time)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    ASSERT_TRUE(zet_sensor_measure(sensor.sensor));
    EXPECT_FALSE(zet_sensor_measure(sensor.sensor));
    expect_logged("is still measuring");
    ASSERT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
    EXPECT_FALSE(zet_sensor_measure(sensor.sensor));
    expect_logged("has unread frames (1); read them first");
}

TEST(state, a_prepare_discards_the_measurement_in_progress)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    ASSERT_TRUE(zet_sensor_measure(sensor.sensor));
    ASSERT_TRUE(sensor.prepare());
    EXPECT_FALSE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
    EXPECT_FALSE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
    sensor.measure();
}

TEST(state, a_short_buffer_is_refused_by_prepare)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    EXPECT_FALSE(zet_sensor_prepare(sensor.sensor, sensor.config, &sensor.cal_result, sensor.buffer.data(),
                                    sensor.buffer_size() - 4));
    expect_logged("but needs " + std::to_string(sensor.buffer_size()));
}

TEST(state, a_misaligned_buffer_is_refused)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    auto *bytes = reinterpret_cast<unsigned char *>(sensor.buffer.data());
    EXPECT_FALSE(zet_sensor_prepare(sensor.sensor, sensor.config, &sensor.cal_result, bytes + 1,
                                    sensor.buffer_size()));
    expect_logged("not aligned");
}

TEST(state, processing_accepts_only_its_own_frames)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    zet_processing_metadata_t metadata = {};
    zet_config_subsweep_num_points_set(sensor.config, 10, 0);
    zet_processing_t *other = zet_processing_create(sensor.config, &metadata);
    zet_processing_result_t result = {};
    zet_processing_execute(other, sensor.buffer.data(), &result);
    expect_logged("the frame has 160 samples, but the processing is for 10");
    std::memset(sensor.buffer.data(), 0, sensor.buffer_size());
    zet_processing_execute(sensor.processing, sensor.buffer.data(), &result);
    expect_logged("the buffer contains no frame");
    zet_processing_destroy(other);
}

TEST(state, a_frame_without_clear_channel_measurement_has_no_value)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    float value = -1.0F;
    EXPECT_FALSE(zet_processing_cca_check(sensor.processing, sensor.buffer.data(), &value));
    expect_logged("has no clear-channel measurement");
    EXPECT_EQ(value, -1.0F);
}

TEST(state, status_reports_the_state)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_sensor_status(sensor.sensor);
    expect_logged("status of sensor 1: power on, enabled, calibration step 0, not prepared");
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    zet_hal_integration_sensor_disable(1);
    zet_hal_integration_sensor_supply_off(1);
    zet_sensor_status(sensor.sensor);
    expect_logged("power off, not enabled, calibration step 0, prepared, 1 frames measured, 0 waiting");
}

TEST(state, log_level_and_diagnostic_log)
{
    const simulation simulation;
    zet_nox_set_log_level(ZET_LOG_LEVEL_ERROR);
    zet_cal_result_t damaged = {};
    EXPECT_FALSE(zet_sensor_validate_calibration(&damaged));
    EXPECT_EQ(simulation::log(), "");
    simulated_sensor sensor;
    sensor.calibrate();
    EXPECT_EQ(simulation::log(), "");
    zet_diagnostic_log_enable(true);
    sensor.calibrate();
    zet_diagnostic_log_enable(false);
    expect_logged("sensor 1: calibration step 4 of 4");
}

TEST(state, probe_24_is_refused)
{
    const simulation simulation;
    zet_probes_register_callback(ZET_PROBE_ID_MAX, nullptr, nullptr);
    expect_logged("probe 24 does not exist; use 0 to 23");
}

TEST(state, out_of_memory_fails_and_is_counted)
{
    const simulation simulation;
    const exhausted_memory exhausted;
    const uint32_t failures = memory().failures;
    EXPECT_EQ(zet_config_create(), nullptr);
    expect_logged("out of memory");
    EXPECT_EQ(memory().failures, failures + 1U);
}

TEST(state, a_processing_without_memory_does_not_change_the_metadata)
{
    const simulation simulation;
    const simulated_sensor sensor;
    const exhausted_memory exhausted;
    zet_processing_metadata_t metadata = {};
    EXPECT_EQ(zet_processing_create(sensor.config, &metadata), nullptr);
    EXPECT_EQ(metadata.frame_data_length, 0U);
}

} // namespace
