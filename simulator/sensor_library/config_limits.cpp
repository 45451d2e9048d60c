/** @file
 * Validates configurations: every value against its range, and the values against each other.
 */
#include "common/number_text.h"
#include "sensor_library/config.h"
#include "sensor_library/frame_buffer.h"
#include "sensor_library/signal.h"
#include "sensor_library/timing.h"

namespace
{

using namespace zet_simulator;

constexpr uint16_t max_sweeps_per_frame = 4095;
constexpr uint16_t max_num_points = 4095;
constexpr uint16_t max_step_length = 1000;
constexpr int32_t min_start_point = -1000;
constexpr int32_t max_start_point = 20000;
constexpr uint16_t max_hwaas = 511;
constexpr uint8_t max_receiver_gain = 23;

/** Lowest rate that the timers can count, in hertz. */
constexpr float min_rate = 0.01F;

/** Relative difference up to which two rates count as equal. */
constexpr float rate_tolerance = 1.0e-3F;

/** Checks a frame-level integer. */
bool is_in_range(const char *name, long value, long lowest, long highest)
{
    if (value >= lowest && value <= highest)
    {
        return true;
    }
    library_log(ZET_LOG_LEVEL_ERROR, "%s is %ld, but must be %ld to %ld", name, value, lowest, highest);
    return false;
}

/** Checks an integer of a sub-sweep. */
bool is_in_range(const char *name, uint32_t index, long value, long lowest, long highest)
{
    if (value >= lowest && value <= highest)
    {
        return true;
    }
    library_log(ZET_LOG_LEVEL_ERROR, "%s of sub-sweep %lu is %ld, but must be %ld to %ld", name,
                static_cast<unsigned long>(index), value, lowest, highest);
    return false;
}

/** Checks that a rate is 0 or one that a timer can count. */
bool is_rate(const char *name, float rate)
{
    const float highest = 1.0e6F;
    if (rate == 0.0F || (rate >= min_rate && rate <= highest))
    {
        return true;
    }
    const auto least = static_cast<double>(min_rate);
    const auto most = static_cast<double>(highest);
    library_log(ZET_LOG_LEVEL_ERROR, "%s is %s Hz, but must be 0 or %s to %s Hz", name,
                text_beside(static_cast<double>(rate), {0.0, least, most}).text, text_of(least).text,
                text_of(most).text);
    return false;
}

/** Checks that the echo of a sub-sweep's last point arrives before the next pulse. */
bool is_unambiguous(uint32_t index, const subsweep_config &subsweep)
{
    const int32_t last_point =
        subsweep.start_point + (subsweep.num_points - 1) * static_cast<int32_t>(subsweep.step_length);
    const auto farthest = static_cast<int32_t>(unambiguous_steps(burst_period(subsweep.prf)));
    if (last_point <= farthest)
    {
        return true;
    }
    library_log(ZET_LOG_LEVEL_ERROR,
                "the last point of sub-sweep %lu is %ld, but its prf allows at most %ld; use a lower "
                "prf or a shorter range",
                static_cast<unsigned long>(index), static_cast<long>(last_point),
                static_cast<long>(farthest));
    return false;
}

/** Checks one sub-sweep. */
bool is_subsweep_valid(uint32_t index, const subsweep_config &subsweep)
{
    bool valid = is_in_range("start_point", index, subsweep.start_point, min_start_point, max_start_point);
    valid &= is_in_range("num_points", index, subsweep.num_points, 1, max_num_points);
    valid &= is_in_range("step_length", index, subsweep.step_length, 1, max_step_length);
    valid &= is_in_range("profile", index, subsweep.profile, ZET_CONFIG_PROFILE_1, ZET_CONFIG_PROFILE_5);
    valid &= is_in_range("hwaas", index, subsweep.hwaas, 1, max_hwaas);
    valid &= is_in_range("receiver_gain", index, subsweep.receiver_gain, 0, max_receiver_gain);
    valid &= is_in_range("prf", index, subsweep.prf, ZET_CONFIG_PRF_19_5_MHZ, ZET_CONFIG_PRF_5_2_MHZ);
    return valid && is_unambiguous(index, subsweep);
}

/** Checks the numbers of sub-sweeps, sweeps and samples, and every sub-sweep. */
bool is_layout_valid(const zet_config &config)
{
    bool valid = is_in_range("sweeps_per_frame", config.sweeps_per_frame, 1, max_sweeps_per_frame);
    if (!is_in_range("the number of sub-sweeps", config.num_subsweeps, 1, ZET_MAX_NUM_SUBSWEEPS))
    {
        return false;
    }
    for (uint32_t i = 0; i < config.num_subsweeps; ++i)
    {
        valid &= is_subsweep_valid(i, config.subsweeps[i]);
    }
    if (valid && samples_per_frame(config) > max_frame_samples)
    {
        library_log(ZET_LOG_LEVEL_ERROR,
                    "a frame has %lu samples (points times sweeps), but must have at most %lu",
                    static_cast<unsigned long>(samples_per_frame(config)),
                    static_cast<unsigned long>(max_frame_samples));
        valid = false;
    }
    return valid;
}

/** Checks the idle states. */
bool are_idle_states_valid(const zet_config &config)
{
    const bool valid = is_in_range("inter_frame_idle_state", config.inter_frame_idle_state,
                                   ZET_CONFIG_IDLE_STATE_DEEP_SLEEP, ZET_CONFIG_IDLE_STATE_READY) &&
                       is_in_range("inter_sweep_idle_state", config.inter_sweep_idle_state,
                                   ZET_CONFIG_IDLE_STATE_DEEP_SLEEP, ZET_CONFIG_IDLE_STATE_READY);
    if (valid && config.inter_sweep_idle_state < config.inter_frame_idle_state)
    {
        library_log(ZET_LOG_LEVEL_ERROR,
                    "inter_sweep_idle_state is %u, but must not be deeper than "
                    "inter_frame_idle_state, which is %u (0 is the deepest)",
                    static_cast<unsigned>(config.inter_sweep_idle_state),
                    static_cast<unsigned>(config.inter_frame_idle_state));
        return false;
    }
    return valid;
}

/** Checks the rates of the continuous sweep mode against each other. */
bool is_continuous_sweep_mode_valid(const zet_config &config)
{
    if (!config.continuous_sweep_mode)
    {
        return true;
    }
    const float needed = config.frame_rate * static_cast<float>(config.sweeps_per_frame);
    const float difference =
        config.sweep_rate > needed ? config.sweep_rate - needed : needed - config.sweep_rate;
    if (needed > 0.0F && difference <= rate_tolerance * needed)
    {
        return true;
    }
    library_log(ZET_LOG_LEVEL_ERROR,
                "continuous_sweep_mode needs a sweep_rate of frame_rate times "
                "sweeps_per_frame, which is %s Hz, but it is %s Hz",
                text_of(static_cast<double>(needed)).text,
                text_beside(static_cast<double>(config.sweep_rate), {static_cast<double>(needed)}).text);
    return false;
}

/** Checks the rates of a configuration whose layout is valid. */
bool are_rates_valid(const zet_config &config)
{
    if (!is_rate("sweep_rate", config.sweep_rate) || !is_rate("frame_rate", config.frame_rate) ||
        !is_continuous_sweep_mode_valid(config))
    {
        return false;
    }
    const float max_sweep_rate = timing_max_sweep_rate(config);
    if (config.sweep_rate > max_sweep_rate)
    {
        const double highest = upper_bound_with_decimals(static_cast<double>(max_sweep_rate));
        library_log(ZET_LOG_LEVEL_ERROR,
                    "sweep_rate is %s Hz, but with this num_points, hwaas and prf it must "
                    "be at most %s Hz",
                    text_beside(static_cast<double>(config.sweep_rate), {highest}).text,
                    text_of(highest).text);
        return false;
    }
    parameter_block block;
    parameter_block_fill(config, nullptr, block);
    const frame_timing timing = timing_of(config, block);
    if (timing.frame_period_us > 0.0 && timing.frame_us > timing.frame_period_us)
    {
        const double highest = upper_bound_with_decimals(1.0e6 / timing.frame_us);
        library_log(ZET_LOG_LEVEL_ERROR,
                    "frame_rate is %s Hz, but a frame takes %lu us, so it must be at "
                    "most %s Hz",
                    text_beside(static_cast<double>(config.frame_rate), {highest}).text,
                    static_cast<unsigned long>(timing.frame_us), text_of(highest).text);
        return false;
    }
    return true;
}

} // namespace

namespace zet_simulator
{

bool config_is_valid(const zet_config &config)
{
    const bool layout_valid = is_layout_valid(config);
    const bool idle_states_valid = are_idle_states_valid(config);
    return layout_valid && idle_states_valid && are_rates_valid(config);
}

} // namespace zet_simulator
