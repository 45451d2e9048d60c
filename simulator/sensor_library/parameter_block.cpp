/** @file
 * The parameter block of a configuration.
 */
#include "sensor_library/parameter_block.h"

#include <cstring>

#include "sensor_library/timing.h"

namespace
{

using namespace zet_simulator;

/** Returns the number of complete coarse cells up to a point, rounded down. */
int32_t coarse_of(int32_t point)
{
    const int32_t cells = point / delay_cell;
    return point % delay_cell < 0 ? cells - 1 : cells;
}

/** Returns a pulse pattern: one bit per cycle of a pulse, for the first sixteen cycles. */
uint16_t sequence_of(uint16_t duration)
{
    return static_cast<uint16_t>(duration >= 16U ? UINT16_MAX : (1U << duration) - 1U);
}

/** Returns the period of a timer in cycles of the reference clock, limited to what the timer can count. */
uint32_t timer_period(float rate)
{
    const double cycles = reference_clock_hz / static_cast<double>(rate) + 0.5;
    return cycles < 4294967295.0 ? static_cast<uint32_t>(cycles) : UINT32_MAX;
}

/** Fills the words of the timers and idle states. */
void fill_timing(const zet_config &config, parameter_block &block)
{
    block.inter_frame_idle_state_sleep_en = config.inter_frame_idle_state == ZET_CONFIG_IDLE_STATE_SLEEP;
    block.inter_frame_idle_state_deep_sleep_en =
        config.inter_frame_idle_state == ZET_CONFIG_IDLE_STATE_DEEP_SLEEP;
    block.inter_sweep_idle_state_sleep_en = config.inter_sweep_idle_state == ZET_CONFIG_IDLE_STATE_SLEEP;
    block.inter_sweep_idle_state_deep_sleep_en =
        config.inter_sweep_idle_state == ZET_CONFIG_IDLE_STATE_DEEP_SLEEP;
    if (config.frame_rate > 0.0F)
    {
        const uint32_t period = timer_period(config.frame_rate);
        block.frame_rate_en = 1;
        block.frame_rate_ref_clk_31_16 = static_cast<uint16_t>(period >> 16U);
        block.frame_rate_ref_clk_15_0 = static_cast<uint16_t>(period);
    }
    if (config.sweep_rate > 0.0F)
    {
        const uint32_t period = timer_period(config.sweep_rate);
        block.sweep_rate_en = 1;
        block.sweep_rate_ref_clk_31_16 = static_cast<uint16_t>(period >> 16U);
        block.sweep_rate_ref_clk_15_0 = static_cast<uint16_t>(period);
    }
    block.frame_rate_sync_to_sweep_en = config.continuous_sweep_mode;
    block.frame_double_buffer = config.double_buffering;
    block.high_speed_mode = timing_is_high_speed(config);
    block.delay_1_us_ref_clk = 26;
    block.delay_4_us_ref_clk = 4 * 26;
    block.delay_300_us_ref_clk = 300 * 26;
}

/** Fills the start of the delay line and its steps over the points of a sub-sweep. */
void fill_delays(const subsweep_config &subsweep, subsweep_parameters &parameters)
{
    const int32_t last_point =
        subsweep.start_point + (subsweep.num_points - 1) * static_cast<int32_t>(subsweep.step_length);
    const int32_t first_coarse = coarse_of(subsweep.start_point);
    const int32_t last_coarse = coarse_of(last_point);
    parameters.rx_coarse = static_cast<uint16_t>(first_coarse);
    parameters.head_rx_fine_base = static_cast<uint16_t>(subsweep.start_point - first_coarse * delay_cell);
    parameters.tail_rx_fine_base = static_cast<uint16_t>(last_point - last_coarse * delay_cell);
    parameters.first_coarse_run = 1;
    parameters.last_coarse_run = last_coarse > first_coarse;
    parameters.mid_coarse_run = last_coarse > first_coarse + 1;
    parameters.mid_coarse_repeats =
        parameters.mid_coarse_run != 0U ? static_cast<uint16_t>(last_coarse - first_coarse - 1) : uint16_t{0};
    parameters.coarse_incr_repeats = 1;
    parameters.point_repeats = subsweep.num_points;
    parameters.measure_point_repeats = 1;
}

/** Fills the words of one sub-sweep. */
void fill_subsweep(const zet_config &config, const subsweep_config &subsweep, subsweep_parameters &parameters)
{
    const uint16_t duration = profile_duration(subsweep.profile);
    const auto extension = static_cast<uint16_t>(duration > 16U ? duration - 16U : 0U);
    parameters.vga_ctrl = subsweep.receiver_gain;
    parameters.tor_en = subsweep.enable_loopback;
    parameters.lna1_en = !subsweep.enable_loopback;
    parameters.pulse_length = {duration,  duration, sequence_of(duration), sequence_of(duration),
                               extension, extension};
    parameters.pulseshaper.tx_trig_wg_width = duration;
    parameters.pulseshaper.tx_trig_wg_width_en = 1;
    parameters.pulseshaper.pa_sequence_15_0 = sequence_of(duration);
    parameters.integration_repeats = subsweep.hwaas;
    parameters.integrator_ctrl = unity_integrator_ctrl;
    parameters.tx_en = config.enable_tx && subsweep.enable_tx;
    parameters.burst_period = burst_period(subsweep.prf);
    parameters.duty_cycle = static_cast<uint16_t>(parameters.burst_period / 2U);
    fill_delays(subsweep, parameters);
}

} // namespace

namespace zet_simulator
{

uint16_t profile_duration(zet_config_profile_t profile)
{
    static const uint16_t durations[] = {4, 8, 14, 20, 32};
    return durations[profile - ZET_CONFIG_PROFILE_1];
}

uint16_t burst_period(zet_config_prf_t prf)
{
    static const uint16_t periods[] = {4, 5, 6, 9, 12, 15};
    return periods[prf];
}

void parameter_block_fill(const zet_config &config,
                          const zet_cpd_k330_meas_session_calibration_parameters_t *calibration,
                          parameter_block &block)
{
    std::memset(&block, 0, sizeof(block));
    if (calibration != nullptr)
    {
        block.calibration = *calibration;
    }
    fill_timing(config, block);
    for (uint32_t i = 0; i < config.num_subsweeps; ++i)
    {
        block.run_subsweep[i] = 1;
        fill_subsweep(config, config.subsweeps[i], block.subsweeps[i]);
    }
    block.sweep_repeats = config.sweeps_per_frame;
    block.sweep_repeats_run = 1;
    block.bufsat_upper_limit = static_cast<uint16_t>(INT16_MAX);
    block.bufsat_lower_limit = static_cast<uint16_t>(INT16_MIN);
    block.run_cca_measurement = config.enable_cca;
}

} // namespace zet_simulator
