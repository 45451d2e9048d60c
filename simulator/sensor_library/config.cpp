/** @file
 * Configurations: defaults, setters and getters.
 */
#include "sensor_library/config.h"

#include "zet_config_cca.h"
#include "zet_config_internal.h"
#include "zet_config_subsweep.h"

namespace
{

using namespace zet_simulator;

constexpr subsweep_config default_subsweep = {
    80, 160, 1, 8, ZET_CONFIG_PROFILE_3, 16, ZET_CONFIG_PRF_15_6_MHZ, true, false, false, false,
};

/** Stores a frame-level value; does nothing for an invalid handle, which is logged. */
template <typename value_t>
void set(zet_config_t *handle, value_t zet_config::*field, value_t value, const char *operation)
{
    zet_config *config = config_find(handle, operation);
    if (config != nullptr)
    {
        config->*field = value;
        ++config->revision;
    }
}

/** Stores a value of a sub-sweep; does nothing for an invalid handle or index, which is logged. */
template <typename value_t>
void set(zet_config_t *handle, uint8_t index, value_t subsweep_config::*field, value_t value,
         const char *operation)
{
    zet_config *config = config_find(handle, operation);
    if (config == nullptr)
    {
        return;
    }
    if (index >= ZET_MAX_NUM_SUBSWEEPS)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: sub-sweep %u does not exist; use 0 to %u", operation,
                    static_cast<unsigned>(index), ZET_MAX_NUM_SUBSWEEPS - 1U);
        return;
    }
    config->subsweeps[index].*field = value;
    ++config->revision;
}

/** Reads a frame-level value; 0 for an invalid handle, which is logged. */
template <typename value_t>
value_t get(const zet_config_t *handle, value_t zet_config::*field, const char *operation)
{
    const zet_config *config = config_find(handle, operation);
    return config != nullptr ? config->*field : value_t{};
}

} // namespace

namespace zet_simulator
{

zet_config *config_find(const zet_config_t *handle, const char *operation)
{
    return static_cast<zet_config *>(object_find(handle, object_kind::config, operation));
}

} // namespace zet_simulator

zet_config_t *zet_config_create(void)
{
    auto *config = static_cast<zet_config *>(object_create(object_kind::config, sizeof(zet_config)));
    if (config == nullptr)
    {
        return nullptr;
    }
    config->num_subsweeps = 1;
    config->sweeps_per_frame = 1;
    config->enable_tx = true;
    config->inter_frame_idle_state = ZET_CONFIG_IDLE_STATE_DEEP_SLEEP;
    config->inter_sweep_idle_state = ZET_CONFIG_IDLE_STATE_READY;
    for (subsweep_config &subsweep : config->subsweeps)
    {
        subsweep = default_subsweep;
    }
    return config;
}

void zet_config_destroy(zet_config_t *config)
{
    if (config != nullptr && config_find(config, __func__) != nullptr)
    {
        object_destroy(config);
    }
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

void zet_config_subtract_in_buffer_set(zet_config_t *config, bool enabled)
{
    set(config, &zet_config::subtract_in_buffer, enabled, __func__);
}

void zet_config_enable_tx_set(zet_config_t *config, bool enabled)
{
    set(config, &zet_config::enable_tx, enabled, __func__);
}

void zet_config_enable_cca_set(zet_config_t *config, bool enabled)
{
    set(config, &zet_config::enable_cca, enabled, __func__);
}

void zet_config_subsweep_start_point_set(zet_config_t *config, int32_t start_point, uint8_t index)
{
    set(config, index, &subsweep_config::start_point, start_point, __func__);
}

void zet_config_subsweep_num_points_set(zet_config_t *config, uint16_t num_points, uint8_t index)
{
    set(config, index, &subsweep_config::num_points, num_points, __func__);
}

void zet_config_subsweep_step_length_set(zet_config_t *config, uint16_t step_length, uint8_t index)
{
    set(config, index, &subsweep_config::step_length, step_length, __func__);
}

void zet_config_subsweep_profile_set(zet_config_t *config, zet_config_profile_t profile, uint8_t index)
{
    set(config, index, &subsweep_config::profile, profile, __func__);
}

void zet_config_subsweep_hwaas_set(zet_config_t *config, uint16_t hwaas, uint8_t index)
{
    set(config, index, &subsweep_config::hwaas, hwaas, __func__);
}

void zet_config_subsweep_receiver_gain_set(zet_config_t *config, uint8_t gain, uint8_t index)
{
    set(config, index, &subsweep_config::receiver_gain, gain, __func__);
}

void zet_config_subsweep_enable_tx_set(zet_config_t *config, bool enabled, uint8_t index)
{
    set(config, index, &subsweep_config::enable_tx, enabled, __func__);
}

void zet_config_subsweep_enable_loopback_set(zet_config_t *config, bool enabled, uint8_t index)
{
    set(config, index, &subsweep_config::enable_loopback, enabled, __func__);
}

void zet_config_subsweep_phase_enhancement_set(zet_config_t *config, bool enabled, uint8_t index)
{
    set(config, index, &subsweep_config::phase_enhancement, enabled, __func__);
}

void zet_config_subsweep_iq_imbalance_compensation_set(zet_config_t *config, bool enabled, uint8_t index)
{
    set(config, index, &subsweep_config::iq_imbalance_compensation, enabled, __func__);
}

void zet_config_subsweep_prf_set(zet_config_t *config, zet_config_prf_t prf, uint8_t index)
{
    set(config, index, &subsweep_config::prf, prf, __func__);
}
