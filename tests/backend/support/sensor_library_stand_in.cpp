/** @file
 * Stand-in for the sensor library. Like the real one, it allocates its handles with the board allocator.
 */
#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include <gtest/gtest.h>

#include "neighbours.h"
#include "zet_config.h"
#include "zet_config_cca.h"
#include "zet_config_internal.h"
#include "zet_config_subsweep.h"
#include "zet_diagnostic_log.h"
#include "zet_integration.h"
#include "zet_nox_k330.h"
#include "zet_processing_cca.h"

using namespace backend_tests;

namespace
{

std::string show(const zet_config_t *config)
{
    return config == nullptr ? "null" : "config " + std::to_string(config->number);
}

std::string show(const zet_sensor_t *sensor)
{
    return sensor == nullptr ? "null" : "sensor " + std::to_string(sensor->id);
}

std::string show(const zet_processing_t *processing)
{
    return processing == nullptr ? "null" : "processing " + std::to_string(processing->number);
}

std::string show(const zet_cal_result_t *cal_result)
{
    const bool empty = std::all_of(std::begin(cal_result->data), std::end(cal_result->data),
                                   [](uint32_t word) { return word == 0; });
    return empty ? "no calibration" : "calibration of " + std::to_string(cal_result->data[0]);
}

std::string show(const void *pointer)
{
    return memory().name(pointer);
}

std::string show(zet_probes_callback_rw_t *callback)
{
    return callback == nullptr ? "null" : "callback";
}

using backend_tests::show;

template <typename... arguments_t> void record_call(const char *name, const arguments_t &...arguments)
{
    record(call_kind_t::sensor_library, name, {show(arguments)...});
}

template <typename handle_t> handle_t *create(const char *name, const handle_t &initial)
{
    const neighbour_scope_t scope(block_owner_t::sensor_library, name);
    void *place = refused(name) ? nullptr : zet_integration_mem_alloc(sizeof(handle_t));
    return place == nullptr ? nullptr : new (place) handle_t(initial);
}

template <typename handle_t> void destroy(const char *name, handle_t *handle)
{
    record_call(name, handle);
    EXPECT_NE(handle, nullptr) << name << " was called without a handle";
    const neighbour_scope_t scope(block_owner_t::sensor_library, name);
    zet_integration_mem_free(handle);
}

zet_cal_result_t new_calibration(zet_sensor_id_t sensor_id)
{
    const auto &temperatures = neighbours().temperatures;
    const auto set = temperatures.find(sensor_id);
    const auto usual = static_cast<int16_t>(20 + sensor_id);
    return calibration_of(sensor_id, set == temperatures.end() ? usual : set->second);
}

/** Passes the parameter block to the registered callback. Each word contains its own index. */
void fire_probe(zet_sensor_id_t sensor_id)
{
    if (neighbours().callback == nullptr)
    {
        return;
    }
    auto &parameters = neighbours().parameters;
    std::array<uint16_t, sizeof(parameters) / sizeof(uint16_t)> words{};
    for (size_t index = 0; index < words.size(); ++index)
    {
        words.at(index) = static_cast<uint16_t>(index);
    }
    std::memcpy(&parameters, words.data(), sizeof(parameters));
    const zet_probes_header_t header{ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, sensor_id, 0};
    EXPECT_TRUE(
        neighbours().callback(&header, &parameters, sizeof(parameters), neighbours().client_reference));
}

} // namespace

bool zet_nox_hal_register(const zet_hal_k330_t *hal)
{
    record_call(__func__, hal == &neighbours().implementation ? "implementation" : "another record");
    return !refused(__func__);
}

void zet_nox_set_log_level(zet_log_level_t level)
{
    record_call(__func__, level);
}

bool zet_nox_get_buffer_size(const zet_config_t *config, uint32_t *buffer_size)
{
    record_call(__func__, config);
    if (refused(__func__))
    {
        return false;
    }
    *buffer_size = neighbours().buffer_size;
    return true;
}

void zet_diagnostic_log_enable(bool enable)
{
    record_call(__func__, enable);
}

void zet_probes_register_callback(zet_probe_id_t probe_id, zet_probes_callback_rw_t *callback,
                                  void *client_reference)
{
    record_call(__func__, probe_id, callback, client_reference);
    neighbours().callback = callback;
    neighbours().client_reference = client_reference;
}

zet_sensor_t *zet_sensor_create(zet_sensor_id_t sensor_id)
{
    record_call(__func__, sensor_id);
    return create(__func__, zet_sensor{sensor_id, neighbours().calibration_steps});
}

void zet_sensor_destroy(zet_sensor_t *sensor)
{
    destroy(__func__, sensor);
}

bool zet_sensor_calibrate(zet_sensor_t *sensor, bool *cal_complete, zet_cal_result_t *cal_result,
                          void *buffer, uint32_t buffer_size)
{
    record_call(__func__, sensor, *cal_complete, cal_result, buffer, buffer_size);
    if (refused(__func__))
    {
        *cal_complete = neighbours().complete_although_failed;
        return false;
    }
    sensor->steps_left -= 1;
    *cal_result = new_calibration(sensor->id);
    *cal_complete = sensor->steps_left <= 0;
    return true;
}

bool zet_sensor_prepare(zet_sensor_t *sensor, const zet_config_t *config, const zet_cal_result_t *cal_result,
                        void *buffer, uint32_t buffer_size)
{
    record_call(__func__, sensor, config, cal_result, buffer, buffer_size);
    fire_probe(sensor == nullptr ? 0 : sensor->id);
    return !refused(__func__);
}

bool zet_sensor_measure(zet_sensor_t *sensor)
{
    record_call(__func__, sensor);
    return !refused(__func__);
}

bool zet_sensor_read(const zet_sensor_t *sensor, void *buffer, uint32_t buffer_size)
{
    record_call(__func__, sensor, buffer, buffer_size);
    return !refused(__func__);
}

void zet_sensor_status(const zet_sensor_t *sensor)
{
    record_call(__func__, sensor);
}

bool zet_sensor_connected(zet_sensor_id_t sensor_id)
{
    record_call(__func__, sensor_id);
    return !neighbours().absent_sensors.contains(sensor_id);
}

bool zet_sensor_get_cal_info(const zet_cal_result_t *cal_result, zet_cal_info_t *cal_info)
{
    record_call(__func__, cal_result);
    if (refused(__func__))
    {
        return false;
    }
    cal_info->temperature = static_cast<int16_t>(cal_result->data[1]);
    return true;
}

bool zet_sensor_validate_calibration(const zet_cal_result_t *cal_result)
{
    record_call(__func__, cal_result);
    return !refused(__func__);
}

zet_processing_t *zet_processing_create(const zet_config_t *config, zet_processing_metadata_t *metadata)
{
    record_call(__func__, config);
    auto &state = neighbours();
    const int number = state.processings_created + 1;
    zet_processing_t *processing = create(__func__, zet_processing{number});
    if (processing == nullptr)
    {
        return nullptr;
    }
    state.processings_created = number;
    *metadata = default_metadata();
    if (!state.metadata.empty())
    {
        *metadata = state.metadata.front();
        state.metadata.pop_front();
    }
    for (int sample = 0; sample < metadata->frame_data_length; ++sample)
    {
        state.frames[number].push_back(
            {static_cast<int16_t>(number * 1000 + sample), static_cast<int16_t>(-sample)});
    }
    return processing;
}

void zet_processing_execute(zet_processing_t *processing, void *buffer, zet_processing_result_t *result)
{
    record_call(__func__, processing, buffer);
    const int number = processing == nullptr ? 0 : processing->number;
    *result = neighbours().results[number];
    result->frame = neighbours().frames[number].data();
}

bool zet_processing_cca_check(const zet_processing_t *processing, const void *buffer, float *cca_value)
{
    record_call(__func__, processing, buffer);
    if (refused(__func__))
    {
        return false;
    }
    *cca_value = 0.0F;
    auto &values = neighbours().cca_values;
    if (!values.empty())
    {
        *cca_value = values.front();
        values.pop_front();
    }
    return true;
}

float zet_processing_points_to_meter(int32_t points)
{
    record_call(__func__, points);
    return 0.00244140625F * static_cast<float>(points);
}

void zet_processing_destroy(zet_processing_t *processing)
{
    destroy(__func__, processing);
}

zet_config_t *zet_config_create(void)
{
    record_call(__func__);
    zet_config initial = neighbours().config_defaults;
    initial.number = neighbours().configs_created + 1;
    zet_config_t *config = create(__func__, initial);
    neighbours().configs_created += config == nullptr ? 0 : 1;
    return config;
}

void zet_config_destroy(zet_config_t *config)
{
    destroy(__func__, config);
}

void zet_config_num_subsweeps_set(zet_config_t *config, uint8_t num_subsweeps)
{
    record_call(__func__, config, num_subsweeps);
    config->num_subsweeps = num_subsweeps;
}

uint8_t zet_config_num_subsweeps_get(const zet_config_t *config)
{
    record_call(__func__, config);
    return config->num_subsweeps;
}

void zet_config_sweeps_per_frame_set(zet_config_t *config, uint16_t sweeps_per_frame)
{
    record_call(__func__, config, sweeps_per_frame);
    config->sweeps_per_frame = sweeps_per_frame;
}

uint16_t zet_config_sweeps_per_frame_get(const zet_config_t *config)
{
    record_call(__func__, config);
    return config->sweeps_per_frame;
}

void zet_config_sweep_rate_set(zet_config_t *config, float sweep_rate)
{
    record_call(__func__, config, sweep_rate);
    config->sweep_rate = sweep_rate;
}

float zet_config_sweep_rate_get(const zet_config_t *config)
{
    record_call(__func__, config);
    return config->sweep_rate;
}

void zet_config_frame_rate_set(zet_config_t *config, float frame_rate)
{
    record_call(__func__, config, frame_rate);
    config->frame_rate = frame_rate;
}

float zet_config_frame_rate_get(const zet_config_t *config)
{
    record_call(__func__, config);
    return config->frame_rate;
}

/** Defines setters that only record the call, because the backend never reads the values back. */
#define RECORDED_SETTER(name, value_t)                                                                       \
    void name(zet_config_t *config, value_t value)                                                           \
    {                                                                                                        \
        record_call(#name, config, value);                                                                   \
    }
#define RECORDED_SUBSWEEP_SETTER(name, value_t)                                                              \
    void name(zet_config_t *config, value_t value, uint8_t index)                                            \
    {                                                                                                        \
        record_call(#name, config, value, index);                                                            \
    }

RECORDED_SETTER(zet_config_continuous_sweep_mode_set, bool)
RECORDED_SETTER(zet_config_double_buffering_set, bool)
RECORDED_SETTER(zet_config_subtract_in_buffer_set, bool)
RECORDED_SETTER(zet_config_inter_frame_idle_state_set, zet_config_idle_state_t)
RECORDED_SETTER(zet_config_inter_sweep_idle_state_set, zet_config_idle_state_t)
RECORDED_SETTER(zet_config_enable_tx_set, bool)
RECORDED_SETTER(zet_config_enable_cca_set, bool)

RECORDED_SUBSWEEP_SETTER(zet_config_subsweep_start_point_set, int32_t)
RECORDED_SUBSWEEP_SETTER(zet_config_subsweep_num_points_set, uint16_t)
RECORDED_SUBSWEEP_SETTER(zet_config_subsweep_step_length_set, uint16_t)
RECORDED_SUBSWEEP_SETTER(zet_config_subsweep_profile_set, zet_config_profile_t)
RECORDED_SUBSWEEP_SETTER(zet_config_subsweep_hwaas_set, uint16_t)
RECORDED_SUBSWEEP_SETTER(zet_config_subsweep_receiver_gain_set, uint8_t)
RECORDED_SUBSWEEP_SETTER(zet_config_subsweep_enable_tx_set, bool)
RECORDED_SUBSWEEP_SETTER(zet_config_subsweep_enable_loopback_set, bool)
RECORDED_SUBSWEEP_SETTER(zet_config_subsweep_phase_enhancement_set, bool)
RECORDED_SUBSWEEP_SETTER(zet_config_subsweep_iq_imbalance_compensation_set, bool)
RECORDED_SUBSWEEP_SETTER(zet_config_subsweep_prf_set, zet_config_prf_t)
