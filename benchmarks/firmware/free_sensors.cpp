/** @file
 * Sensors that measure with almost no instructions.
 */
#include "free_sensors.h"

#include <cjson/cJSON.h>

#include "cycle_counter.h"
#include "hand_written_message.h"
#include "zet_config.h"
#include "zet_config_subsweep.h"
#include "zet_hal_integration_k330.h"
#include "zet_probes.h"
#include "zet_processing.h"
#include "zet_processing_cca.h"
#include "zet_sensor.h"

uint32_t message_begin;

namespace
{

bool are_free;
bool is_processed; /**< the frame was processed, and no object was created since */
zet_int16_complex_t samples[16];

} // namespace

void free_sensors(bool free)
{
    are_free = free;
}

// The linker's names for a wrapped function and for its replacement.
extern "C" {

bool __real_zet_sensor_prepare(zet_sensor_t *sensor, const zet_config_t *config,
                               const zet_cal_result_t *cal_result, void *buffer, uint32_t buffer_size);
bool __real_zet_sensor_measure(zet_sensor_t *sensor);
bool __real_zet_sensor_read(const zet_sensor_t *sensor, void *buffer, uint32_t buffer_size);
void __real_zet_processing_execute(zet_processing_t *processing, void *buffer,
                                   zet_processing_result_t *result);
bool __real_zet_sensor_get_cal_info(const zet_cal_result_t *cal_result, zet_cal_info_t *cal_info);
uint8_t __real_zet_config_num_subsweeps_get(const zet_config_t *config);
float __real_zet_processing_points_to_meter(int32_t points);
bool __real_zet_processing_cca_check(const zet_processing_t *processing, const void *buffer,
                                     float *cca_value);
void __real_zet_probes_register_callback(zet_probe_id_t id, zet_probes_callback_rw_t *callback,
                                         void *user_reference);
cJSON *__real_cJSON_CreateObject();
bool __real_zet_hal_integration_wait_for_sensor_interrupt(zet_sensor_id_t sensor_id, uint32_t timeout_ms);

bool __wrap_zet_sensor_prepare(zet_sensor_t *sensor, const zet_config_t *config,
                               const zet_cal_result_t *cal_result, void *buffer, uint32_t buffer_size)
{
    return are_free || __real_zet_sensor_prepare(sensor, config, cal_result, buffer, buffer_size);
}

bool __wrap_zet_sensor_get_cal_info(const zet_cal_result_t *cal_result, zet_cal_info_t *cal_info)
{
    if (!are_free)
    {
        return __real_zet_sensor_get_cal_info(cal_result, cal_info);
    }
    cal_info->temperature = free_temperature;
    return true;
}

uint8_t __wrap_zet_config_num_subsweeps_get(const zet_config_t *config)
{
    return are_free ? uint8_t{1} : __real_zet_config_num_subsweeps_get(config);
}

float __wrap_zet_processing_points_to_meter(int32_t points)
{
    return are_free ? 0.0025F : __real_zet_processing_points_to_meter(points);
}

bool __wrap_zet_sensor_measure(zet_sensor_t *sensor)
{
    return are_free || __real_zet_sensor_measure(sensor);
}

bool __wrap_zet_sensor_read(const zet_sensor_t *sensor, void *buffer, uint32_t buffer_size)
{
    return are_free || __real_zet_sensor_read(sensor, buffer, buffer_size);
}

void __wrap_zet_processing_execute(zet_processing_t *processing, void *buffer,
                                   zet_processing_result_t *result)
{
    if (!are_free)
    {
        __real_zet_processing_execute(processing, buffer, result);
        return;
    }
    *result = {false, false, false, free_temperature, samples};
    is_processed = true;
}

bool __wrap_zet_processing_cca_check(const zet_processing_t *processing, const void *buffer, float *cca_value)
{
    *cca_value = assessed_value;
    return are_free || __real_zet_processing_cca_check(processing, buffer, cca_value);
}

cJSON *__wrap_cJSON_CreateObject()
{
    if (is_processed)
    {
        is_processed = false;
        message_begin = cycle_count();
    }
    return __real_cJSON_CreateObject();
}

void __wrap_zet_probes_register_callback(zet_probe_id_t id, zet_probes_callback_rw_t *callback,
                                         void *user_reference)
{
    if (!are_free)
    {
        __real_zet_probes_register_callback(id, callback, user_reference);
    }
}

bool __wrap_zet_hal_integration_wait_for_sensor_interrupt(zet_sensor_id_t sensor_id, uint32_t timeout_ms)
{
    return are_free || __real_zet_hal_integration_wait_for_sensor_interrupt(sensor_id, timeout_ms);
}
}
