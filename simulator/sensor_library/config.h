/** @file
 * The record behind a configuration handle, and its validation.
 */
#ifndef ZET_SIMULATOR_CONFIG_H
#define ZET_SIMULATOR_CONFIG_H

#include <cstdint>

#include "sensor_library/library.h"
#include "zet_config.h"
#include "zet_definitions_k330.h"

namespace zet_simulator
{

/** Settings of one sub-sweep, as passed to the setters. */
struct subsweep_config
{
    int32_t start_point;
    uint16_t num_points;
    uint16_t step_length;
    uint16_t hwaas;
    zet_config_profile_t profile;
    uint8_t receiver_gain;
    zet_config_prf_t prf;
    bool enable_tx;
    bool enable_loopback;
    bool phase_enhancement;
    bool iq_imbalance_compensation;
};

/**
 * Checks every value of a configuration against its range, and the values against each other.
 *
 * @return false when a value is not valid; a log line names the value and its limit
 */
bool config_is_valid(const zet_config &config);

/** Finds the configuration behind a handle; null, with a log line, when there is none. */
zet_config *config_find(const zet_config_t *handle, const char *operation);

} // namespace zet_simulator

/** A configuration. */
struct zet_config : zet_simulator::object
{
    uint32_t revision; /**< changes with each call of a setter */
    float sweep_rate;
    float frame_rate;
    uint16_t sweeps_per_frame;
    uint8_t num_subsweeps;
    bool continuous_sweep_mode;
    bool double_buffering;
    bool subtract_in_buffer;
    bool enable_tx;
    bool enable_cca;
    zet_config_idle_state_t inter_frame_idle_state;
    zet_config_idle_state_t inter_sweep_idle_state;
    zet_simulator::subsweep_config subsweeps[ZET_MAX_NUM_SUBSWEEPS];
};

#endif
