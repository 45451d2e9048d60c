/** @file
 * The parameter block: what the sensor library writes into it, and how changes affect the sensor.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <initializer_list>

#include "simulated_sensor.h"
#include "zet_config_cca.h"
#include "zet_config_internal.h"
#include "zet_config_subsweep.h"
#include "zet_cpd_k330_meas_session_generated.h"
#include "zet_hal_integration_k330.h"
#include "zet_probes.h"

namespace
{

using parameter_block = zet_cpd_k330_meas_session_parameters_t;

/** What the registered callback received, and what it does. */
struct probe
{
    int calls = 0;
    zet_probes_header_t header = {};
    uint32_t size = 0;
    parameter_block seen = {};
    std::function<void(parameter_block &)> change;
    bool answer = true;
};

bool callback(const zet_probes_header_t *header, void *data, uint32_t data_size, void *client_reference)
{
    auto *called = static_cast<probe *>(client_reference);
    auto *block = static_cast<parameter_block *>(data);
    ++called->calls;
    called->header = *header;
    called->size = data_size;
    called->seen = *block;
    if (called->change)
    {
        called->change(*block);
    }
    return called->answer;
}

/** A probe that is registered during its lifetime. */
class registered_probe : public probe
{
public:
    registered_probe()
    {
        zet_probes_register_callback(ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, callback,
                                     static_cast<probe *>(this));
    }
    ~registered_probe()
    {
        zet_probes_register_callback(ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, nullptr, nullptr);
    }
    registered_probe(const registered_probe &) = delete;
    registered_probe &operator=(const registered_probe &) = delete;
};

/** Configures the points to measure, and a receiver that adds only noise. */
void set_ideal_range(const simulated_sensor &sensor, int32_t point, uint16_t num_points)
{
    zet_config_subsweep_start_point_set(sensor.config, point, 0);
    zet_config_subsweep_num_points_set(sensor.config, num_points, 0);
    zet_config_subsweep_phase_enhancement_set(sensor.config, true, 0);
    zet_config_subsweep_iq_imbalance_compensation_set(sensor.config, true, 0);
    zet_config_subtract_in_buffer_set(sensor.config, true);
}

TEST(override, probe_20_fires_in_each_prepare_and_nowhere_else)
{
    const simulation simulation(2);
    simulated_sensor sensor(2);
    const registered_probe probe;
    ASSERT_TRUE(sensor.prepare());
    EXPECT_EQ(probe.calls, 1);
    EXPECT_EQ(probe.header.probe_id, ZET_PROBE_ID_MEAS_SESSION_PARAMETERS);
    EXPECT_EQ(probe.header.sensor_id, 2U);
    EXPECT_EQ(probe.size, 452U);
    sensor.measure();
    sensor.calibrate();
    EXPECT_EQ(probe.calls, 1);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_EQ(probe.calls, 2);
}

TEST(override, only_the_last_registration_is_called)
{
    const simulation simulation;
    simulated_sensor sensor;
    const registered_probe first;
    const registered_probe second;
    ASSERT_TRUE(sensor.prepare());
    EXPECT_EQ(first.calls, 0);
    EXPECT_EQ(second.calls, 1);
    zet_probes_register_callback(ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, nullptr, nullptr);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_EQ(second.calls, 1);
}

TEST(override, prepare_fails_if_the_probe_returns_false)
{
    const simulation simulation;
    simulated_sensor sensor;
    registered_probe probe;
    probe.answer = false;
    EXPECT_FALSE(sensor.prepare());
    EXPECT_FALSE(zet_sensor_measure(sensor.sensor));
}

TEST(override, the_block_matches_the_configuration)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_num_subsweeps_set(sensor.config, 2);
    zet_config_sweeps_per_frame_set(sensor.config, 3);
    zet_config_frame_rate_set(sensor.config, 10.0F);
    zet_config_sweep_rate_set(sensor.config, 100.0F);
    zet_config_double_buffering_set(sensor.config, true);
    zet_config_enable_cca_set(sensor.config, true);
    zet_config_inter_frame_idle_state_set(sensor.config, ZET_CONFIG_IDLE_STATE_SLEEP);
    zet_config_subsweep_hwaas_set(sensor.config, 33, 1);
    zet_config_subsweep_receiver_gain_set(sensor.config, 7, 1);
    zet_config_subsweep_profile_set(sensor.config, ZET_CONFIG_PROFILE_1, 1);
    zet_config_subsweep_enable_tx_set(sensor.config, false, 1);
    zet_config_subsweep_enable_loopback_set(sensor.config, true, 1);
    zet_config_subsweep_prf_set(sensor.config, ZET_CONFIG_PRF_6_5_MHZ, 1);
    const registered_probe probe;
    ASSERT_TRUE(sensor.prepare());
    const parameter_block &block = probe.seen;
    EXPECT_EQ(block.frame_rate_en, 1U);
    EXPECT_EQ(block.frame_rate_ref_clk_31_16 * 65536U + block.frame_rate_ref_clk_15_0, 2600000U);
    EXPECT_EQ(block.sweep_rate_en, 1U);
    EXPECT_EQ(block.sweep_rate_ref_clk_31_16 * 65536U + block.sweep_rate_ref_clk_15_0, 260000U);
    EXPECT_EQ(block.frame_double_buffer, 1U);
    EXPECT_EQ(block.run_cca_measurement, 1U);
    EXPECT_EQ(block.inter_frame_idle_state_sleep_en, 1U);
    EXPECT_EQ(block.inter_frame_idle_state_deep_sleep_en, 0U);
    EXPECT_EQ(block.high_speed_mode, 0U);
    EXPECT_EQ(block.sweep_repeats, 3U);
    EXPECT_EQ(block.run_subsweep[1], 1U);
    EXPECT_EQ(block.run_subsweep[2], 0U);
    EXPECT_EQ(block.subsweeps[1].integration_repeats, 33U);
    EXPECT_EQ(block.subsweeps[1].vga_ctrl, 7U);
    EXPECT_EQ(block.subsweeps[1].pulse_length.tx_duration, 4U);
    EXPECT_EQ(block.subsweeps[1].tx_en, 0U);
    EXPECT_EQ(block.subsweeps[0].tx_en, 1U);
    EXPECT_EQ(block.subsweeps[1].tor_en, 1U);
    EXPECT_EQ(block.subsweeps[1].lna1_en, 0U);
    EXPECT_EQ(block.subsweeps[1].burst_period, 12U);
    EXPECT_EQ(block.calibration.tx_freq_ctrl, block.calibration.rx_freq_ctrl);
    EXPECT_NE(block.calibration.tx_freq_ctrl, 0U);
}

TEST(override, integration_repeats_change_noise_and_duration)
{
    const zet_simulator_scene_t scene = empty_scene();
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_ideal_range(sensor, 1000, 2000);
    ASSERT_TRUE(sensor.prepare());
    const double noise = deviation(sensor.measure().samples);
    registered_probe probe;
    probe.change = [](parameter_block &block) { block.subsweeps[0].integration_repeats = 8 * 16; };
    ASSERT_TRUE(sensor.prepare());
    const uint64_t start_us = now_us();
    EXPECT_NEAR(deviation(sensor.measure().samples), noise / 4.0, 0.05 * noise / 4.0);
    const double expected_us = 2000.0 * (128.0 + 1.0) / 15.6 + 2.0 + 300.0;
    EXPECT_NEAR(static_cast<double>(now_us() - start_us), expected_us, 2.0);
}

/** The number of points at which the response is at least half of its peak. */
size_t width(const frame &measured)
{
    const float top = std::abs(measured.samples[strongest(measured.samples)]);
    size_t points = 0;
    for (const std::complex<float> &sample : measured.samples)
    {
        points += std::abs(sample) > 0.5F * top ? 1U : 0U;
    }
    return points;
}

TEST(override, durations_change_the_envelope)
{
    const zet_simulator_scene_t scene = scene_with_target(1.5F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_ideal_range(sensor, 300, 600);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    ASSERT_TRUE(sensor.prepare());
    const frame with_profile = sensor.measure();
    EXPECT_NEAR(static_cast<double>(width(with_profile)), 4.0 * std::hypot(14.0, 14.0), 2.0);
    registered_probe probe;
    probe.change = [](parameter_block &block) {
        block.subsweeps[0].pulse_length.tx_duration = 28;
        block.subsweeps[0].pulse_length.rx_duration = 21;
    };
    ASSERT_TRUE(sensor.prepare());
    const frame overridden = sensor.measure();
    EXPECT_NEAR(static_cast<double>(width(overridden)), 4.0 * 35.0, 2.0);
    // The height is proportional to T_t T_r / sqrt(T_t^2 + T_r^2).
    const double growth =
        static_cast<double>(std::abs(overridden.samples[strongest(overridden.samples)]) /
                            std::abs(with_profile.samples[strongest(with_profile.samples)]));
    EXPECT_NEAR(growth, (28.0 * 21.0 / 35.0) / (14.0 / std::sqrt(2.0)), 0.03);
}

TEST(override, a_duration_of_0_gives_no_pulse)
{
    const zet_simulator_scene_t scene = scene_with_target(0.4F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    registered_probe probe;
    probe.change = [](parameter_block &block) { block.subsweeps[0].pulse_length.tx_duration = 0; };
    ASSERT_TRUE(sensor.prepare());
    EXPECT_LT(deviation(sensor.measure().samples), 200.0);
}

TEST(override, integrator_control_scales_everything)
{
    const zet_simulator_scene_t scene = scene_with_target(1.0F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_ideal_range(sensor, 400, 1);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    ASSERT_TRUE(sensor.prepare());
    const float before = std::abs(sensor.measure().samples[0]);
    registered_probe probe;
    probe.change = [](parameter_block &block) { block.subsweeps[0].integrator_ctrl = 4; };
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(std::abs(sensor.measure().samples[0]) / before, 0.25F, 0.005F);
    probe.change = [](parameter_block &block) { block.subsweeps[0].integrator_ctrl = 0; };
    ASSERT_TRUE(sensor.prepare());
    EXPECT_EQ(std::abs(sensor.measure().samples[0]), 0.0F);
}

TEST(override, frequency_control_moves_the_carrier)
{
    zet_simulator_scene_t scene = scene_with_target(1.0F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_ideal_range(sensor, 400, 1);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    ASSERT_TRUE(sensor.prepare());
    const std::complex<float> nominal = sensor.measure().samples[0];
    registered_probe probe;
    probe.change = [](parameter_block &block) { block.calibration.tx_freq_ctrl += 2; };
    ASSERT_TRUE(sensor.prepare());
    // A path of 400 base steps, each one turn at the nominal carrier. The carrier is higher by 2 / 8192.
    EXPECT_NEAR(turns_between(nominal, sensor.measure().samples[0]), 400.0 * 2.0 / 8192.0, 0.003);
    // If the receiver's carrier changes as well, a point at the target's distance does not change.
    probe.change = [](parameter_block &block) {
        block.calibration.tx_freq_ctrl += 2;
        block.calibration.rx_freq_ctrl += 2;
    };
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(turns_between(nominal, sensor.measure().samples[0]), 0.0, 0.003);
}

TEST(override, a_receiver_tuned_away_from_the_transmitter_measures_little)
{
    const zet_simulator_scene_t scene = scene_with_target(1.0F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_ideal_range(sensor, 400, 1);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    ASSERT_TRUE(sensor.prepare());
    const float before = std::abs(sensor.measure().samples[0]);
    registered_probe probe;
    probe.change = [](parameter_block &block) { block.calibration.rx_freq_ctrl += 400; };
    ASSERT_TRUE(sensor.prepare());
    EXPECT_LT(std::abs(sensor.measure().samples[0]), 0.01F * before);
}

TEST(override, a_change_affects_only_its_own_sub_sweep)
{
    const zet_simulator_scene_t scene = scene_with_target(0.4F, 0.1F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_num_subsweeps_set(sensor.config, 2);
    registered_probe probe;
    probe.change = [](parameter_block &block) { block.subsweeps[0].integrator_ctrl = 0; };
    ASSERT_TRUE(sensor.prepare());
    const frame measured = sensor.measure();
    EXPECT_LT(std::abs(measured.samples[80]), 10.0F);
    EXPECT_GT(std::abs(measured.samples[160 + 80]), 5000.0F);
}

TEST(override, saturation_limits_and_frame_rate_are_applied)
{
    const zet_simulator_scene_t scene = scene_with_target(0.4F, 0.1F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    registered_probe probe;
    probe.change = [](parameter_block &block) {
        block.bufsat_upper_limit = 1000;
        block.bufsat_lower_limit = static_cast<uint16_t>(-1000);
        block.frame_rate_en = 1;
        block.frame_rate_ref_clk_15_0 = 26000;
    };
    ASSERT_TRUE(sensor.prepare());
    const frame first = sensor.measure();
    EXPECT_TRUE(first.result.data_saturated);
    EXPECT_EQ(std::abs(first.samples[strongest(first.samples)].real()), 1000.0F);
    const uint64_t first_us = now_us();
    sensor.measure();
    EXPECT_EQ(now_us() - first_us, 1000U);
}

TEST(override, every_word_may_have_any_value)
{
    const simulation simulation;
    for (const uint16_t value : std::initializer_list<uint16_t>{0, 1, 255, 32767, 32768, 65535})
    {
        for (size_t word = 0; word < sizeof(parameter_block) / sizeof(uint16_t); ++word)
        {
            simulated_sensor sensor;
            registered_probe probe;
            probe.change = [&](parameter_block &block) {
                reinterpret_cast<uint16_t *>(&block)[word] = value;
            };
            ASSERT_TRUE(sensor.prepare());
            ASSERT_TRUE(zet_sensor_measure(sensor.sensor));
            ASSERT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, UINT32_MAX)) << word;
            ASSERT_TRUE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
        }
    }
}

} // namespace
