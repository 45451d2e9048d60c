/** @file
 * Configurations: their settings and limits, and the buffers that they need.
 */
#include "library.h"

#include <algorithm>

#include "zet_config_cca.h"
#include "zet_config_internal.h"
#include "zet_config_subsweep.h"
#include "zet_nox_k330.h"

namespace
{

using namespace stand_in;

constexpr uint32_t max_samples_per_frame = 16383;
constexpr float min_rate = 0.01F;
constexpr float rate_tolerance = 1.0e-3F;

/** Sets a value of a live configuration. */
template <typename value_t>
void set(zet_config_t *config, value_t zet_config::*member, value_t value, const char *operation)
{
    auto *found = find<zet_config>(config, operation);
    if (found != nullptr)
    {
        found->*member = value;
    }
}

/** Sets a value of a sub-sweep of a live configuration. */
template <typename value_t>
void set(zet_config_t *config, uint8_t index, value_t subsweep_t::*member, value_t value,
         const char *operation)
{
    auto *found = find<zet_config>(config, operation);
    if (found != nullptr && index >= ZET_MAX_NUM_SUBSWEEPS)
    {
        refuse("%s: there is no sub-sweep %u", operation, static_cast<unsigned>(index));
    }
    else if (found != nullptr)
    {
        found->subsweeps[index].*member = value;
    }
}

/** A value of a live configuration; 0 if the handle is invalid. */
template <typename value_t>
value_t get(const zet_config_t *config, value_t zet_config::*member, const char *operation)
{
    const auto *found = find<zet_config>(config, operation);
    return found != nullptr ? found->*member : value_t{};
}

/** Checks a number against its range. */
bool is_in_range(const char *name, int32_t value, int32_t lowest, int32_t highest)
{
    return (value >= lowest && value <= highest) ||
           log(ZET_LOG_LEVEL_ERROR, "%s is %ld; use %ld to %ld", name, static_cast<long>(value),
               static_cast<long>(lowest), static_cast<long>(highest));
}

/** Farthest point with a pulse repetition frequency. */
int32_t farthest_point(zet_config_prf_t prf)
{
    static constexpr int32_t points[] = {3074, 3843, 4612, 6918, 9224, 11530};
    return points[prf];
}

/** Checks one sub-sweep. */
bool is_valid(const subsweep_t &subsweep)
{
    const int32_t length = (subsweep.num_points - 1) * static_cast<int32_t>(subsweep.step_length);
    return is_in_range("start_point", subsweep.start_point, -1000, 20000) &&
           is_in_range("num_points", subsweep.num_points, 1, 4095) &&
           is_in_range("step_length", subsweep.step_length, 1, 1000) &&
           is_in_range("profile", subsweep.profile, ZET_CONFIG_PROFILE_1, ZET_CONFIG_PROFILE_5) &&
           is_in_range("hwaas", subsweep.hwaas, 1, 511) &&
           is_in_range("receiver_gain", subsweep.receiver_gain, 0, 23) &&
           is_in_range("prf", subsweep.prf, ZET_CONFIG_PRF_19_5_MHZ, ZET_CONFIG_PRF_5_2_MHZ) &&
           is_in_range("the last point", subsweep.start_point + length, -1000, farthest_point(subsweep.prf));
}

/** Samples of a sweep. */
uint32_t samples_per_sweep(const zet_config &config)
{
    uint32_t samples = 0;
    for (uint32_t i = 0; i < config.num_subsweeps; ++i)
    {
        samples += config.subsweeps[i].num_points;
    }
    return samples;
}

/** Checks the number of sub-sweeps and sweeps, all sub-sweeps, and the size of a frame. */
bool is_layout_valid(const zet_config &config)
{
    if (!is_in_range("num_subsweeps", config.num_subsweeps, 1, ZET_MAX_NUM_SUBSWEEPS) ||
        !is_in_range("sweeps_per_frame", config.sweeps_per_frame, 1, 4095))
    {
        return false;
    }
    for (uint32_t i = 0; i < config.num_subsweeps; ++i)
    {
        if (!is_valid(config.subsweeps[i]))
        {
            return false;
        }
    }
    return is_in_range("the number of samples in a frame", static_cast<int32_t>(samples_per_frame(config)), 1,
                       max_samples_per_frame);
}

/** Highest sweep rate of a configuration whose layout is valid. */
float max_sweep_rate(const zet_config &config)
{
    return 1.0e6F / static_cast<float>(samples_per_sweep(config));
}

/** Checks that the idle state between sweeps is not deeper than the one between frames. */
bool are_idle_states_valid(const zet_config &config)
{
    return is_in_range("inter_frame_idle_state", config.inter_frame_idle_state,
                       ZET_CONFIG_IDLE_STATE_DEEP_SLEEP, ZET_CONFIG_IDLE_STATE_READY) &&
           is_in_range("inter_sweep_idle_state", config.inter_sweep_idle_state, config.inter_frame_idle_state,
                       ZET_CONFIG_IDLE_STATE_READY);
}

/** Checks the rates of a configuration whose layout is valid. */
bool are_rates_valid(const zet_config &config)
{
    const float highest = max_sweep_rate(config);
    const float sweep_rate = config.sweep_rate == 0.0F ? highest : config.sweep_rate;
    const float needed = config.frame_rate * static_cast<float>(config.sweeps_per_frame);
    if (!(sweep_rate >= min_rate && sweep_rate <= highest))
    {
        return log(ZET_LOG_LEVEL_ERROR, "sweep_rate is out of range; use 0 or 0.01 to %lu Hz",
                   static_cast<unsigned long>(highest));
    }
    if (config.frame_rate != 0.0F &&
        !(config.frame_rate >= min_rate && needed <= sweep_rate * (1.0F + rate_tolerance)))
    {
        return log(ZET_LOG_LEVEL_ERROR, "frame_rate is out of range; use 0, or 0.01 Hz to the sweep rate "
                                        "divided by sweeps_per_frame");
    }
    const bool is_continuous = needed > 0.0F && config.sweep_rate >= needed * (1.0F - rate_tolerance) &&
                               config.sweep_rate <= needed * (1.0F + rate_tolerance);
    return !config.continuous_sweep_mode || is_continuous ||
           log(ZET_LOG_LEVEL_ERROR,
               "continuous_sweep_mode needs a sweep_rate of frame_rate times sweeps_per_frame");
}

} // namespace

namespace stand_in
{

uint32_t samples_per_frame(const zet_config &config)
{
    return samples_per_sweep(config) * config.sweeps_per_frame;
}

uint32_t buffer_size_for(uint32_t samples)
{
    const auto size =
        static_cast<uint32_t>(sizeof(frame_head_t) + samples * sizeof(zet_int16_complex_t) + guard_size);
    return std::max(size, calibration_buffer_size);
}

bool is_config_valid(const zet_config &config)
{
    return is_layout_valid(config) && are_idle_states_valid(config) && are_rates_valid(config);
}

zet_processing_metadata_t metadata_of(const zet_config &config)
{
    zet_processing_metadata_t metadata = {};
    metadata.frame_data_length = static_cast<uint16_t>(samples_per_frame(config));
    metadata.sweep_data_length = static_cast<uint16_t>(samples_per_sweep(config));
    uint16_t offset = 0;
    for (uint32_t i = 0; i < config.num_subsweeps; ++i)
    {
        metadata.subsweep_data_offset[i] = offset;
        metadata.subsweep_data_length[i] = config.subsweeps[i].num_points;
        offset = static_cast<uint16_t>(offset + config.subsweeps[i].num_points);
    }
    metadata.max_sweep_rate = max_sweep_rate(config);
    metadata.high_speed_mode =
        config.num_subsweeps == 1U && config.inter_sweep_idle_state == ZET_CONFIG_IDLE_STATE_READY;
    return metadata;
}

} // namespace stand_in

bool zet_nox_get_buffer_size(const zet_config_t *config, uint32_t *buffer_size)
{
    const auto *found = find<zet_config>(config, __func__);
    if (found == nullptr)
    {
        return false;
    }
    if (buffer_size == nullptr)
    {
        return refuse("%s: the pointer to the size is null", __func__);
    }
    if (!is_config_valid(*found))
    {
        return false;
    }
    *buffer_size = buffer_size_for(samples_per_frame(*found));
    return true;
}

zet_config_t *zet_config_create(void)
{
    return create<zet_config>(__func__);
}

void zet_config_destroy(zet_config_t *config)
{
    destroy_handle<zet_config>(config, __func__);
}

void zet_config_num_subsweeps_set(zet_config_t *config, uint8_t num_subsweeps)
{
    set(config, &zet_config::num_subsweeps, num_subsweeps, __func__);
}

uint8_t zet_config_num_subsweeps_get(const zet_config_t *config)
{
    return get(config, &zet_config::num_subsweeps, __func__);
}

void zet_config_sweeps_per_frame_set(zet_config_t *config, uint16_t sweeps_per_frame)
{
    set(config, &zet_config::sweeps_per_frame, sweeps_per_frame, __func__);
}

uint16_t zet_config_sweeps_per_frame_get(const zet_config_t *config)
{
    return get(config, &zet_config::sweeps_per_frame, __func__);
}

void zet_config_sweep_rate_set(zet_config_t *config, float sweep_rate)
{
    set(config, &zet_config::sweep_rate, sweep_rate, __func__);
}

float zet_config_sweep_rate_get(const zet_config_t *config)
{
    return get(config, &zet_config::sweep_rate, __func__);
}

void zet_config_frame_rate_set(zet_config_t *config, float frame_rate)
{
    set(config, &zet_config::frame_rate, frame_rate, __func__);
}

float zet_config_frame_rate_get(const zet_config_t *config)
{
    return get(config, &zet_config::frame_rate, __func__);
}

void zet_config_continuous_sweep_mode_set(zet_config_t *config, bool enabled)
{
    set(config, &zet_config::continuous_sweep_mode, enabled, __func__);
}

void zet_config_double_buffering_set(zet_config_t *config, bool enabled)
{
    set(config, &zet_config::double_buffering, enabled, __func__);
}

void zet_config_inter_frame_idle_state_set(zet_config_t *config, zet_config_idle_state_t idle_state)
{
    set(config, &zet_config::inter_frame_idle_state, idle_state, __func__);
}

void zet_config_inter_sweep_idle_state_set(zet_config_t *config, zet_config_idle_state_t idle_state)
{
    set(config, &zet_config::inter_sweep_idle_state, idle_state, __func__);
}

void zet_config_enable_cca_set(zet_config_t *config, bool enabled)
{
    set(config, &zet_config::enable_cca, enabled, __func__);
}

void zet_config_subtract_in_buffer_set(zet_config_t *config, bool enabled)
{
    set(config, &zet_config::subtract_in_buffer, enabled, __func__);
}

void zet_config_enable_tx_set(zet_config_t *config, bool enabled)
{
    set(config, &zet_config::enable_tx, enabled, __func__);
}

void zet_config_subsweep_start_point_set(zet_config_t *config, int32_t start_point, uint8_t index)
{
    set(config, index, &subsweep_t::start_point, start_point, __func__);
}

void zet_config_subsweep_num_points_set(zet_config_t *config, uint16_t num_points, uint8_t index)
{
    set(config, index, &subsweep_t::num_points, num_points, __func__);
}

void zet_config_subsweep_step_length_set(zet_config_t *config, uint16_t step_length, uint8_t index)
{
    set(config, index, &subsweep_t::step_length, step_length, __func__);
}

void zet_config_subsweep_profile_set(zet_config_t *config, zet_config_profile_t profile, uint8_t index)
{
    set(config, index, &subsweep_t::profile, profile, __func__);
}

void zet_config_subsweep_hwaas_set(zet_config_t *config, uint16_t hwaas, uint8_t index)
{
    set(config, index, &subsweep_t::hwaas, hwaas, __func__);
}

void zet_config_subsweep_receiver_gain_set(zet_config_t *config, uint8_t gain, uint8_t index)
{
    set(config, index, &subsweep_t::receiver_gain, gain, __func__);
}

void zet_config_subsweep_enable_tx_set(zet_config_t *config, bool enabled, uint8_t index)
{
    set(config, index, &subsweep_t::enable_tx, enabled, __func__);
}

void zet_config_subsweep_enable_loopback_set(zet_config_t *config, bool enabled, uint8_t index)
{
    set(config, index, &subsweep_t::enable_loopback, enabled, __func__);
}

void zet_config_subsweep_phase_enhancement_set(zet_config_t *config, bool enabled, uint8_t index)
{
    set(config, index, &subsweep_t::phase_enhancement, enabled, __func__);
}

void zet_config_subsweep_iq_imbalance_compensation_set(zet_config_t *config, bool enabled, uint8_t index)
{
    set(config, index, &subsweep_t::iq_imbalance_compensation, enabled, __func__);
}

void zet_config_subsweep_prf_set(zet_config_t *config, zet_config_prf_t prf, uint8_t index)
{
    set(config, index, &subsweep_t::prf, prf, __func__);
}
