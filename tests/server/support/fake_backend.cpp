/** @file
 * A stand-in for the sensor-system backend.
 */
#include "fake_backend.h"

#include <array>
#include <string>

#include <cjson/cJSON.h>

#include "zet_cjson_utils.h"
#include "zet_integration.h"
#include "zet_vantor_server_base_internal.h"
#include "zet_vantor_server_error_messages.h"
#include "zet_vantor_server_system_k330.h"

fake_backend_t fake_backend;

const char *const fake_frame_header =
    R"({"result_info":[[{"tick":48213,"data_saturated":false,"temperature":27,"calibration_needed":false,)"
    R"("frame_delayed":false}]],"status":"ok","payload_size":400})";

namespace
{

/** Records a call, and whether the calling order allows it. */
void record(const char *name, bool allowed)
{
    fake_backend.calls.emplace_back(name);
    if (!allowed)
    {
        fake_backend.violations.emplace_back(name);
    }
}

/** The session metadata of the stand-in. */
std::string metadata_text(uint32_t tick_period)
{
    std::string calibration = "9a010000";
    calibration.append(472, '0');
    return R"({"status":"ok","tick_period":)" + std::to_string(tick_period) +
           R"(,"payload_size":0,"calibration_info":[{"sensor_id":1,"temperature":24,"data":")" + calibration +
           R"("}],"metadata":[[{"calibration_temperature":24,"frame_data_length":100,"sweep_data_length":100,)"
           R"("max_sweep_rate":3125.5,"high_speed_mode":true,"base_step_length_m":0.0025,)"
           R"("subsweep_data_offset":[0],"subsweep_data_length":[100]}]]})";
}

/** Builds a document with cJSON and sends it. */
bool send_text(write_data_function_t *write, const char *text)
{
    cJSON *document = cJSON_Parse(text);
    const bool sent = zet_vantor_server_write_json(write, document);
    cJSON_Delete(document);
    return sent;
}

} // namespace

bool zet_vantor_server_system_init(zet_log_level_t nox_log_level)
{
    record("init", !fake_backend.ready);
    cJSON_Hooks hooks = {zet_integration_mem_alloc, zet_integration_mem_free};
    cJSON_InitHooks(&hooks);
    fake_backend.nox_log_level = nox_log_level;
    fake_backend.ready = true;
    return fake_backend.init_result;
}

void zet_vantor_server_system_deinit(void)
{
    record("deinit", fake_backend.ready && !fake_backend.parsed);
    fake_backend.ready = false;
}

void zet_vantor_server_system_destroy_session(void)
{
    record("destroy_session", fake_backend.ready && fake_backend.parsed);
    zet_integration_mem_free(fake_backend.session);
    fake_backend.session = nullptr;
    fake_backend.parsed = false;
    fake_backend.prepared = false;
}

bool zet_vantor_server_system_is_on_demand(void)
{
    return !fake_backend.sensor_paced;
}

const char *zet_vantor_server_system_get_sensor_name(void)
{
    return "k330";
}

bool zet_vantor_server_system_is_sensor_connected(zet_sensor_id_t sensor_id)
{
    return fake_backend.connected.contains(sensor_id);
}

bool zet_vantor_server_system_execute_diagnostics_test(const cJSON * /*input*/,
                                                       const vantor_server_interface_t * /*server_if*/)
{
    record("execute_diagnostics_test", false);
    return false;
}

uint32_t zet_vantor_server_system_k3_get_sensor_count(void)
{
    return fake_backend.sensor_count;
}

bool zet_vantor_server_system_parse_configuration(const cJSON *input, float *max_update_rate,
                                                  const char **error_msg)
{
    record("parse_configuration", fake_backend.ready && !fake_backend.parsed && cJSON_IsObject(input));
    fake_backend.parsed = true;
    fake_backend.during_parse();
    *max_update_rate = -1.0F;
    (void)get_json_float_value(input, "update_rate", max_update_rate);
    if (fake_backend.parse_message != nullptr)
    {
        *error_msg = fake_backend.parse_message;
    }
    fake_backend.session = zet_integration_mem_alloc(64);
    if (fake_backend.session == nullptr)
    {
        *error_msg = error_out_of_memory;
        return false;
    }
    fake_backend.prepared = fake_backend.parse_result;
    return fake_backend.parse_result;
}

bool zet_vantor_server_system_send_session_metadata(write_data_function_t *write_function,
                                                    uint32_t tick_period)
{
    record("send_session_metadata", fake_backend.prepared);
    return fake_backend.metadata_result && send_text(write_function, metadata_text(tick_period).c_str());
}

bool zet_vantor_server_system_read_data_frames(const vantor_server_interface_t *server_if,
                                               const char **error_msg)
{
    record("read_data_frames", fake_backend.prepared && server_if != nullptr);
    fake_backend.during_frame();
    if (!fake_backend.frame_result)
    {
        if (fake_backend.frame_message != nullptr)
        {
            *error_msg = fake_backend.frame_message;
        }
        return false;
    }
    if (!send_text(server_if->write, fake_frame_header))
    {
        *error_msg = error_send_data_str;
        return false;
    }
    static constexpr std::array<uint8_t, size_t{fake_frame_samples} * 4> samples = {'\n', '{', '}'};
    server_if->write(samples.data(), samples.size());
    return true;
}
