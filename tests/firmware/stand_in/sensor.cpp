/** @file
 * Sensors: calibration, prepare, measure, read.
 */
#include "zet_sensor.h"

#include <cstring>
#include <iterator>

#include "library.h"

namespace
{

using namespace stand_in;

/** The arguments of a calibration, which must be the same for all its steps. */
struct calibration_arguments_t
{
    const bool *complete;
    const zet_cal_result_t *result;
    const void *buffer;
    uint32_t buffer_size;

    bool operator==(const calibration_arguments_t &) const = default;
};

/** The program that a sensor was prepared with. */
struct program_t
{
    const zet_config_t *config; /**< null when not prepared */
    frame_head_t head;          /**< of its frames */
    uint32_t slots;             /**< frames that can wait to be read */
    zet_cpd_k330_meas_session_parameters_t block;
    uint32_t block_end; /**< must stay 0 */
};

/** A calibration result. */
struct calibration_t
{
    uint32_t magic;
    zet_sensor_id_t sensor_id;
    int32_t temperature;
    uint32_t curves[56];
    uint32_t checksum;
};
static_assert(sizeof(calibration_t) == sizeof(zet_cal_result_t));

constexpr uint32_t calibration_magic = 0x424C4143;

/** Fills a work buffer before it contains a frame. */
constexpr int work_byte = 0x5A;

} // namespace

/** A sensor in use. */
struct zet_sensor : stand_in::object_t
{
    static constexpr auto kind = stand_in::object_kind_t::sensor;

    zet_sensor_id_t id = 0;
    uint32_t calibration_step = 0; /**< 0 if no calibration is in progress */
    calibration_arguments_t arguments = {};
    program_t prepared = {};
    uint32_t measured = 0; /**< frames since creation */
    uint32_t waiting = 0;  /**< frames that were not read */
};

namespace
{

/** The live handle of a sensor, or null. */
zet_sensor *handle_of(zet_sensor_id_t sensor_id)
{
    for (object_t *candidate = live_objects(); candidate != nullptr; candidate = candidate->next)
    {
        if (candidate->magic == object_kind_t::sensor &&
            static_cast<zet_sensor *>(candidate)->id == sensor_id)
        {
            return static_cast<zet_sensor *>(candidate);
        }
    }
    return nullptr;
}

/** Sends a command to a sensor. */
bool exchange_command(zet_sensor_id_t sensor_id)
{
    struct
    {
        uint8_t before[guard_size];
        uint8_t command[16];
        uint8_t after[guard_size];
    } bytes = {};
    return exchange(sensor_id, bytes.command, sizeof(bytes.command));
}

/**
 * Checks that a sensor with a handle is on. After a failed item the server may calibrate and prepare a sensor
 * that it has switched off: this fails, but is not counted.
 */
bool is_still_on(zet_sensor_id_t sensor_id, const char *operation)
{
    return power_of(sensor_id) == power_t::off
               ? log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu is switched off", operation, number(sensor_id))
               : is_on(sensor_id, operation);
}

/** Checks that the board has handled the last interrupt of a sensor. */
bool is_interrupt_handled(const zet_sensor &sensor, const char *operation)
{
    return !stand_in_interrupt_is_pending(sensor.id) ||
           refuse("%s: the interrupt of sensor %lu was not waited for", operation, number(sensor.id));
}

/** The checksum of a calibration. Every bit of the calibration changes it. */
uint32_t checksum_of(const calibration_t &calibration)
{
    uint32_t words[sizeof(calibration) / sizeof(uint32_t)];
    std::memcpy(words, &calibration, sizeof(words));
    uint32_t sum = 0x811C9DC5;
    for (size_t i = 0; i + 1U < std::size(words); ++i)
    {
        sum = (sum ^ words[i]) * 0x01000193U;
    }
    return sum;
}

/** Writes the calibration of a sensor. */
void write_calibration(zet_sensor_id_t sensor_id, zet_cal_result_t &result)
{
    calibration_t content = {calibration_magic, sensor_id, STAND_IN_TEMPERATURE, {}, 0};
    uint32_t value = sensor_id;
    for (uint32_t &word : content.curves)
    {
        value = value * 1664525U + 1013904223U;
        word = value;
    }
    content.checksum = checksum_of(content);
    std::memcpy(&result, &content, sizeof(result));
}

/** Reads a calibration; returns false if it is damaged or not complete. */
bool read_calibration(const zet_cal_result_t &result, calibration_t &content)
{
    std::memcpy(&content, &result, sizeof(content));
    return content.magic == calibration_magic && content.checksum == checksum_of(content);
}

/** Reads a calibration. If it is damaged, logs that; if it is null, counts a contract violation. */
bool open_calibration(const zet_cal_result_t *result, calibration_t &content, const char *operation)
{
    if (!is_registered(operation))
    {
        return false;
    }
    if (result == nullptr)
    {
        return refuse("%s: the calibration result is null", operation);
    }
    return read_calibration(*result, content) ||
           log(ZET_LOG_LEVEL_WARNING, "%s: the calibration result is damaged", operation);
}

/** Checks the arguments of a calibration step, and that the previous step has ended. */
bool is_step_allowed(const zet_sensor &sensor, const calibration_arguments_t &arguments,
                     const char *operation)
{
    if (!is_buffer_usable(arguments.buffer, arguments.buffer_size, calibration_buffer_size, operation))
    {
        return false;
    }
    if (sensor.calibration_step == 0U)
    {
        return true;
    }
    return (sensor.arguments == arguments || refuse("%s: step %lu has other arguments than the first",
                                                    operation, number(sensor.calibration_step + 1U))) &&
           is_interrupt_handled(sensor, operation);
}

/** Checks that a calibration belongs to a sensor. */
bool is_calibrated(const zet_sensor &sensor, const zet_cal_result_t *result, const char *operation)
{
    calibration_t content = {};
    if (result == nullptr || !read_calibration(*result, content))
    {
        return refuse("%s: the calibration result is null, damaged or not complete", operation);
    }
    return content.sensor_id == sensor.id || refuse("%s: sensor %lu is given the calibration of sensor %lu",
                                                    operation, number(sensor.id), number(content.sensor_id));
}

/** Checks a configuration and its buffer. */
bool is_program_allowed(const zet_config &config, const void *buffer, uint32_t buffer_size,
                        const char *operation)
{
    if (!is_config_valid(config))
    {
        return refuse("%s: the configuration is not valid", operation);
    }
    return is_buffer_usable(buffer, buffer_size, buffer_size_for(samples_per_frame(config)), operation);
}

/** Fills the parameters of one sub-sweep. */
void fill_parameters(const zet_config &config, const subsweep_t &subsweep,
                     zet_cpd_k330_meas_session_subsweep_parameters_t &parameters)
{
    parameters.vga_ctrl = subsweep.receiver_gain;
    parameters.tor_en = subsweep.enable_loopback;
    parameters.pulse_length.tx_duration = subsweep.profile;
    parameters.pulse_length.rx_duration = subsweep.profile;
    parameters.integration_repeats = subsweep.hwaas;
    parameters.point_repeats = subsweep.num_points;
    parameters.tx_en = config.enable_tx && subsweep.enable_tx;
    parameters.burst_period = subsweep.prf;
    parameters.rx_coarse = static_cast<uint16_t>(subsweep.start_point);
}

/** Creates the program for a valid configuration. */
program_t program_of(const zet_config &config)
{
    const uint32_t has_cca = config.enable_cca ? 1U : 0U;
    program_t made = {&config, {frame_magic, config.serial, samples_per_frame(config), has_cca}, 1, {}, 0};
    made.slots = config.double_buffering ? 2U : 1U;
    made.block.frame_double_buffer = config.double_buffering;
    made.block.sweep_repeats = config.sweeps_per_frame;
    made.block.high_speed_mode = metadata_of(config).high_speed_mode;
    made.block.run_cca_measurement = config.enable_cca;
    for (uint32_t i = 0; i < config.num_subsweeps; ++i)
    {
        made.block.run_subsweep[i] = 1;
        fill_parameters(config, config.subsweeps[i], made.block.subsweeps[i]);
    }
    return made;
}

/** Checks that a sensor is prepared and that its configuration is still alive. */
bool is_prepared(const zet_sensor &sensor, const char *operation)
{
    const program_t &prepared = sensor.prepared;
    if (prepared.config == nullptr)
    {
        return refuse("%s: sensor %lu is not prepared", operation, number(sensor.id));
    }
    const auto *config = find<zet_config>(prepared.config, operation);
    return config != nullptr &&
           (config->serial == prepared.head.config_serial ||
            refuse("%s: the configuration of sensor %lu was destroyed", operation, number(sensor.id)));
}

/** Writes a frame into a work buffer. */
void write_frame(const zet_sensor &sensor, uint32_t frame_number, void *buffer)
{
    auto *head = static_cast<frame_head_t *>(buffer);
    *head = sensor.prepared.head;
    auto *samples = reinterpret_cast<zet_int16_complex_t *>(head + 1);
    for (uint32_t i = 0; i < head->sample_count; ++i)
    {
        samples[i] = stand_in_sample(sensor.id, frame_number, i);
    }
}

/** Resets a sensor to the state before prepare. */
void reset_program(zet_sensor &sensor)
{
    sensor.prepared.config = nullptr;
    sensor.waiting = 0;
}

} // namespace

namespace stand_in
{

void reset_state(zet_sensor_id_t sensor_id)
{
    zet_sensor *sensor = handle_of(sensor_id);
    if (sensor != nullptr)
    {
        reset_program(*sensor);
        sensor->calibration_step = 0;
    }
}

} // namespace stand_in

const zet_cpd_k330_meas_session_parameters_t *stand_in_parameters(zet_sensor_id_t sensor_id)
{
    const zet_sensor *sensor = handle_of(sensor_id);
    return sensor != nullptr && sensor->prepared.config != nullptr ? &sensor->prepared.block : nullptr;
}

bool zet_sensor_connected(zet_sensor_id_t sensor_id)
{
    return is_registered(__func__) && is_sensor_id(sensor_id, __func__) && is_on(sensor_id, __func__) &&
           exchange_command(sensor_id);
}

zet_sensor_t *zet_sensor_create(zet_sensor_id_t sensor_id)
{
    if (!is_registered(__func__) || !is_sensor_id(sensor_id, __func__))
    {
        return nullptr;
    }
    if (handle_of(sensor_id) != nullptr)
    {
        refuse("%s: sensor %lu has a live handle", __func__, number(sensor_id));
        return nullptr;
    }
    const bool answers = is_on(sensor_id, __func__) && exchange_command(sensor_id);
    zet_sensor *sensor = answers ? create<zet_sensor>(__func__) : nullptr;
    if (sensor != nullptr)
    {
        sensor->id = sensor_id;
    }
    return sensor;
}

void zet_sensor_destroy(zet_sensor_t *sensor)
{
    destroy_handle<zet_sensor>(sensor, __func__);
}

bool zet_sensor_calibrate(zet_sensor_t *sensor, bool *cal_complete, zet_cal_result_t *cal_result,
                          void *buffer, uint32_t buffer_size)
{
    if (cal_complete == nullptr || cal_result == nullptr)
    {
        return refuse("%s: the flag or the calibration result is null", __func__);
    }
    *cal_complete = false;
    auto *found = find<zet_sensor>(sensor, __func__);
    if (found == nullptr || !is_still_on(found->id, __func__))
    {
        return false;
    }
    const calibration_arguments_t arguments = {cal_complete, cal_result, buffer, buffer_size};
    reset_program(*found);
    require_reset(found->id);
    if (!is_step_allowed(*found, arguments, __func__) || !exchange_command(found->id))
    {
        found->calibration_step = 0;
        return false;
    }
    std::memset(buffer, work_byte, buffer_size);
    if (found->calibration_step == STAND_IN_CALIBRATION_STEPS)
    {
        found->calibration_step = 0;
        write_calibration(found->id, *cal_result);
        *cal_complete = true;
        return true;
    }
    std::memset(cal_result, work_byte, sizeof(*cal_result));
    found->arguments = arguments;
    ++found->calibration_step;
    log_diagnostics("sensor %lu: calibration step %lu", number(found->id), number(found->calibration_step));
    stand_in_raise_interrupt(found->id);
    return true;
}

bool zet_sensor_prepare(zet_sensor_t *sensor, const zet_config_t *config, const zet_cal_result_t *cal_result,
                        void *buffer, uint32_t buffer_size)
{
    auto *found = find<zet_sensor>(sensor, __func__);
    const auto *found_config = find<zet_config>(config, __func__);
    if (found == nullptr || found_config == nullptr || !is_still_on(found->id, __func__) ||
        !is_calibrated(*found, cal_result, __func__) ||
        !is_program_allowed(*found_config, buffer, buffer_size, __func__))
    {
        return false;
    }
    if (found->calibration_step != 0U)
    {
        return refuse("%s: sensor %lu is in the middle of its calibration", __func__, number(found->id));
    }
    if (!is_reset(found->id, __func__))
    {
        return false;
    }
    reset_program(*found);
    std::memset(buffer, work_byte, buffer_size);
    program_t made = program_of(*found_config);
    if (!exchange_command(found->id) || !fire_probe(found->id, made.block))
    {
        return false;
    }
    if (made.block_end != 0U)
    {
        return refuse("%s: the probe wrote beyond the parameters", __func__);
    }
    found->prepared = made;
    return true;
}

bool zet_sensor_measure(zet_sensor_t *sensor)
{
    auto *found = find<zet_sensor>(sensor, __func__);
    if (found == nullptr || !is_prepared(*found, __func__))
    {
        return false;
    }
    if (found->waiting == found->prepared.slots)
    {
        return refuse("%s: sensor %lu has a frame that was not read", __func__, number(found->id));
    }
    if (!exchange_command(found->id))
    {
        return false;
    }
    ++found->measured;
    ++found->waiting;
    stand_in_raise_interrupt(found->id);
    return true;
}

bool zet_sensor_read(const zet_sensor_t *sensor, void *buffer, uint32_t buffer_size)
{
    auto *found = find<zet_sensor>(sensor, __func__);
    if (found == nullptr || !is_prepared(*found, __func__))
    {
        return false;
    }
    const uint32_t sample_count = found->prepared.head.sample_count;
    if (found->waiting == 0U)
    {
        return refuse("%s: sensor %lu has no measured frame", __func__, number(found->id));
    }
    if (!is_buffer_usable(buffer, buffer_size, buffer_size_for(sample_count), __func__) ||
        !is_interrupt_handled(*found, __func__))
    {
        return false;
    }
    std::memset(buffer, work_byte, buffer_size);
    auto *samples = static_cast<uint8_t *>(buffer) + sizeof(frame_head_t);
    if (!exchange(found->id, samples, sample_count * sizeof(zet_int16_complex_t)))
    {
        return false;
    }
    write_frame(*found, found->measured - found->waiting, buffer);
    --found->waiting;
    return true;
}

void zet_sensor_status(const zet_sensor_t *sensor)
{
    const auto *found = find<zet_sensor>(sensor, __func__);
    if (found == nullptr)
    {
        return;
    }
    const bool on = power_of(found->id) == power_t::on;
    if (!on || exchange_command(found->id))
    {
        log(ZET_LOG_LEVEL_ERROR,
            "sensor %lu: %s, calibration step %lu, %s, %lu frames measured, %lu not read", number(found->id),
            on ? "on" : "off", number(found->calibration_step),
            found->prepared.config != nullptr ? "prepared" : "not prepared", number(found->measured),
            number(found->waiting));
    }
}

bool zet_sensor_get_cal_info(const zet_cal_result_t *cal_result, zet_cal_info_t *cal_info)
{
    calibration_t content = {};
    if (!open_calibration(cal_result, content, __func__))
    {
        return false;
    }
    if (cal_info == nullptr)
    {
        return refuse("%s: the pointer to the information is null", __func__);
    }
    cal_info->temperature = static_cast<int16_t>(content.temperature);
    return true;
}

bool zet_sensor_validate_calibration(const zet_cal_result_t *cal_result)
{
    calibration_t content = {};
    return open_calibration(cal_result, content, __func__);
}
