/** @file
 * Sensor handles: creation, presence, state, calibration.
 */
#include "sensor_library/sensor.h"

#include <algorithm>

#include "board/board.h"
#include "scene/scene.h"
#include "sensor_library/frame_buffer.h"

namespace
{

using namespace zet_simulator;

/** Returns whether a sensor answers with its identity over its link. */
bool answers(zet_sensor_id_t sensor_id)
{
    uint8_t exchange[1 + sizeof(link_identity)] = {link_command_identify};
    library_hal()->transfer(sensor_id, exchange, sizeof(exchange));
    return exchange[1] == link_identity[0] && exchange[2] == link_identity[1];
}

/** Checks the arguments of a calibration step. */
bool are_calibration_arguments_valid(const bool *cal_complete, const zet_cal_result_t *cal_result,
                                     const void *buffer, uint32_t buffer_size, const char *operation)
{
    if (cal_complete == nullptr || cal_result == nullptr)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the flag or the calibration result is null", operation);
        return false;
    }
    if (!buffer_is_usable(buffer, operation))
    {
        return false;
    }
    if (buffer_size < calibration_work_size)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the buffer has %lu bytes, but needs %lu", operation,
                    static_cast<unsigned long>(buffer_size),
                    static_cast<unsigned long>(calibration_work_size));
        return false;
    }
    return true;
}

/** Ends a calibration, successful or not: the sensor needs a reset then. */
void end_calibration(zet_sensor &sensor)
{
    sensor.calibration_step = 0;
    sensor.reset_awaited_from = board_find_sensor(sensor.id)->reset_count;
}

/** Drops a calibration that a reset of the sensor has interrupted, with a log line. */
void forget_interrupted_calibration(zet_sensor &sensor)
{
    if (sensor.calibration_step > 0U &&
        sensor.calibration_resets != board_find_sensor(sensor.id)->reset_count)
    {
        library_log(ZET_LOG_LEVEL_WARNING,
                    "sensor %lu was reset during its calibration; the calibration starts again",
                    static_cast<unsigned long>(sensor.id));
        sensor.calibration_step = 0;
    }
}

/** Begins the next step of a calibration. */
void begin_step(zet_sensor &sensor)
{
    ++sensor.calibration_step;
    sensor.calibration_resets = board_find_sensor(sensor.id)->reset_count;
    const instant now = board_now();
    sensor.calibration_done_us = now.clock_us + calibration_step_us;
    library_diagnostic_log("sensor %lu: calibration step %lu of %lu", static_cast<unsigned long>(sensor.id),
                           static_cast<unsigned long>(sensor.calibration_step),
                           static_cast<unsigned long>(calibration_step_count));
    board_schedule_interrupt(sensor.id, {sensor.calibration_done_us, now.ideal_us + calibration_step_us});
}

/** Runs the step that is due. */
bool advance_calibration(zet_sensor &sensor, bool &complete, zet_cal_result_t &result)
{
    if (sensor.calibration_step > 0U && board_now_us() < sensor.calibration_done_us)
    {
        library_log(ZET_LOG_LEVEL_ERROR,
                    "zet_sensor_calibrate: sensor %lu is still busy with step %lu; wait for its interrupt",
                    static_cast<unsigned long>(sensor.id),
                    static_cast<unsigned long>(sensor.calibration_step));
        return false;
    }
    if (board_next_fault(ZET_SIMULATOR_FAULT_FAILING_CALIBRATION, sensor.id) != nullptr)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "zet_sensor_calibrate: sensor %lu does not settle in step %lu",
                    static_cast<unsigned long>(sensor.id),
                    static_cast<unsigned long>(sensor.calibration_step) + 1U);
        end_calibration(sensor);
        return false;
    }
    if (sensor.calibration_step < calibration_step_count)
    {
        begin_step(sensor);
        return true;
    }
    const int16_t temperature = sensor_temperature(sensor);
    calibration_fill(sensor.id, temperature, result);
    library_diagnostic_log("sensor %lu: calibrated at %d degrees", static_cast<unsigned long>(sensor.id),
                           temperature);
    end_calibration(sensor);
    complete = true;
    return true;
}

} // namespace

namespace zet_simulator
{

zet_sensor *sensor_find(const zet_sensor_t *handle, const char *operation)
{
    return static_cast<zet_sensor *>(object_find(handle, object_kind::sensor, operation));
}

bool sensor_is_on(const zet_sensor &sensor, const char *operation)
{
    const board_sensor *position = board_find_sensor(sensor.id);
    if (position == nullptr || !position->supplied || !position->enabled)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu %s", operation,
                    static_cast<unsigned long>(sensor.id),
                    position == nullptr || !position->supplied ? "has no power" : "is not enabled");
        return false;
    }
    if (sensor.reset_awaited_from == position->reset_count)
    {
        library_log(ZET_LOG_LEVEL_ERROR,
                    "%s: sensor %lu must be reset after its calibration: disable it and "
                    "enable it again",
                    operation, static_cast<unsigned long>(sensor.id));
        return false;
    }
    return true;
}

void sensor_forget_measurements(zet_sensor &sensor)
{
    sensor.program.config = nullptr;
    sensor.frames_waiting = 0;
    board_find_sensor(sensor.id)->interrupt.clock_us = no_interrupt;
}

double scene_time_s(double moment_us)
{
    const double seconds_per_us = 1.0e-6;
    const double since_start_us = moment_us - board_current_session().scene_start_us;
    return std::max(since_start_us, 0.0) / board_clock_rate() * seconds_per_us;
}

int16_t sensor_temperature(const zet_sensor &sensor)
{
    return scene_temperature(board_scene(), sensor.id, scene_time_s(static_cast<double>(board_now_us())));
}

} // namespace zet_simulator

bool zet_sensor_connected(zet_sensor_id_t sensor_id)
{
    if (library_hal() == nullptr)
    {
        return false;
    }
    if (!board_sensor_is_on(sensor_id))
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu does not exist, has no power or is not enabled",
                    __func__, static_cast<unsigned long>(sensor_id));
        return false;
    }
    return answers(sensor_id);
}

zet_sensor_t *zet_sensor_create(zet_sensor_id_t sensor_id)
{
    if (!zet_sensor_connected(sensor_id))
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu does not answer", __func__,
                    static_cast<unsigned long>(sensor_id));
        return nullptr;
    }
    board_sensor *position = board_find_sensor(sensor_id);
    if (position->in_use)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu already has a handle; destroy it first", __func__,
                    static_cast<unsigned long>(sensor_id));
        return nullptr;
    }
    auto *sensor = static_cast<zet_sensor *>(object_create(object_kind::sensor, sizeof(zet_sensor)));
    if (sensor != nullptr)
    {
        sensor->id = sensor_id;
        sensor->session = position->session_count++;
        position->in_use = true;
        board_count_handle();
    }
    return sensor;
}

void zet_sensor_destroy(zet_sensor_t *sensor)
{
    if (sensor == nullptr || sensor_find(sensor, __func__) == nullptr)
    {
        return;
    }
    board_sensor *position = board_find_sensor(sensor->id);
    if (position != nullptr && position->in_use)
    {
        position->in_use = false;
        --board_current_session().handle_count;
    }
    object_destroy(sensor);
}

bool zet_sensor_calibrate(zet_sensor_t *sensor, bool *cal_complete, zet_cal_result_t *cal_result,
                          void *buffer, uint32_t buffer_size)
{
    if (cal_complete != nullptr)
    {
        *cal_complete = false;
    }
    zet_sensor *found = sensor_find(sensor, __func__);
    if (found == nullptr ||
        !are_calibration_arguments_valid(cal_complete, cal_result, buffer, buffer_size, __func__) ||
        !sensor_is_on(*found, __func__))
    {
        return false;
    }
    sensor_forget_measurements(*found);
    forget_interrupted_calibration(*found);
    return advance_calibration(*found, *cal_complete, *cal_result);
}

void zet_sensor_status(const zet_sensor_t *sensor)
{
    const zet_sensor *found = sensor_find(sensor, __func__);
    if (found == nullptr)
    {
        return;
    }
    const board_sensor *position = board_find_sensor(found->id);
    library_log(
        ZET_LOG_LEVEL_ERROR,
        "status of sensor %lu: power %s, %s, calibration step %lu%s, %s, %lu frames measured, %lu waiting",
        static_cast<unsigned long>(found->id), position != nullptr && position->supplied ? "on" : "off",
        position != nullptr && position->enabled ? "enabled" : "not enabled",
        static_cast<unsigned long>(found->calibration_step),
        position != nullptr && found->reset_awaited_from == position->reset_count
            ? " (needs a reset after its calibration)"
            : "",
        found->program.config != nullptr ? "prepared" : "not prepared",
        static_cast<unsigned long>(found->frame_count), static_cast<unsigned long>(found->frames_waiting));
}
