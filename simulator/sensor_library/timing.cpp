/** @file
 * Durations of sweeps and frames.
 */
#include "sensor_library/timing.h"

namespace
{

using namespace zet_simulator;

/** Overheads of a mode. */
struct overhead
{
    double setup_us;        /**< before each sub-sweep */
    uint32_t settle_pulses; /**< before each point */
};

constexpr overhead normal_overhead = {10.0, 4};
constexpr overhead high_speed_overhead = {2.0, 1};

/** Length of the clear-channel measurement before a frame. */
constexpr double cca_us = 50.0;

constexpr double reference_cycles_per_us = reference_clock_hz / 1.0e6;
constexpr double burst_cycles_per_us = burst_clock_hz / 1.0e6;

/** Returns the duration of a sub-sweep. A pulse takes at least one cycle, and a point at least one pulse. */
double subsweep_us(uint16_t num_points, const subsweep_parameters &parameters, const overhead &overhead)
{
    const uint32_t repeats = parameters.integration_repeats > 0U ? parameters.integration_repeats : 1U;
    const uint32_t period = parameters.burst_period > 0U ? parameters.burst_period : 1U;
    const double pulses = static_cast<double>(num_points) * (repeats + overhead.settle_pulses);
    return overhead.setup_us + pulses * period / burst_cycles_per_us;
}

/** Returns the time that the sensor needs to become ready from an idle state. */
double wake_us(uint16_t sleep_enabled, uint16_t deep_sleep_enabled, const parameter_block &block)
{
    const uint16_t cycles = deep_sleep_enabled != 0U ? block.delay_300_us_ref_clk
                            : sleep_enabled != 0U    ? block.delay_4_us_ref_clk
                                                     : block.delay_1_us_ref_clk;
    return cycles / reference_cycles_per_us;
}

/** Returns the period of a timer from the two halves of its count; 0 when it is off. */
double timer_us(uint16_t enabled, uint16_t high, uint16_t low)
{
    const uint32_t cycles = (static_cast<uint32_t>(high) << 16U) | low;
    return enabled != 0U ? cycles / reference_cycles_per_us : 0.0;
}

} // namespace

namespace zet_simulator
{

bool timing_is_high_speed(const zet_config &config)
{
    return config.num_subsweeps == 1U && config.inter_sweep_idle_state == ZET_CONFIG_IDLE_STATE_READY &&
           !config.continuous_sweep_mode;
}

frame_timing timing_of(const zet_config &config, const parameter_block &block)
{
    const overhead &overhead = block.high_speed_mode != 0U ? high_speed_overhead : normal_overhead;
    double sweep_us = 0.0;
    for (uint32_t i = 0; i < config.num_subsweeps; ++i)
    {
        sweep_us += subsweep_us(config.subsweeps[i].num_points, block.subsweeps[i], overhead);
    }
    const double sweep_wake_us =
        wake_us(block.inter_sweep_idle_state_sleep_en, block.inter_sweep_idle_state_deep_sleep_en, block);
    const double frame_wake_us = block.frame_rate_sync_to_sweep_en != 0U
                                     ? sweep_wake_us
                                     : wake_us(block.inter_frame_idle_state_sleep_en,
                                               block.inter_frame_idle_state_deep_sleep_en, block);

    frame_timing timing = {};
    timing.shortest_sweep_period_us = sweep_us + sweep_wake_us;
    timing.frame_period_us =
        timer_us(block.frame_rate_en, block.frame_rate_ref_clk_31_16, block.frame_rate_ref_clk_15_0);
    // In the continuous sweep mode the sweeps divide the frame period, or their two rates, rounded each on
    // its own, would drift apart and leave a gap after each frame.
    timing.sweep_period_us =
        block.frame_rate_sync_to_sweep_en != 0U
            ? timing.frame_period_us / config.sweeps_per_frame
            : timer_us(block.sweep_rate_en, block.sweep_rate_ref_clk_31_16, block.sweep_rate_ref_clk_15_0);
    if (timing.sweep_period_us < timing.shortest_sweep_period_us)
    {
        timing.sweep_period_us = timing.shortest_sweep_period_us;
    }
    timing.lead_us = frame_wake_us + (block.run_cca_measurement != 0U ? cca_us : 0.0);
    timing.frame_us = timing.lead_us + (config.sweeps_per_frame - 1) * timing.sweep_period_us + sweep_us;
    return timing;
}

float timing_max_sweep_rate(const zet_config &config)
{
    parameter_block block;
    parameter_block_fill(config, nullptr, block);
    return static_cast<float>(1.0e6 / timing_of(config, block).shortest_sweep_period_us);
}

} // namespace zet_simulator
