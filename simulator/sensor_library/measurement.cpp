/** @file
 * Prepare, measure and read.
 */
#include "board/board.h"
#include "sensor_library/frame.h"
#include "sensor_library/frame_buffer.h"
#include "sensor_library/probes.h"

namespace
{

using namespace zet_simulator;

/** Checks that a buffer is large enough for the frames of a configuration. */
bool is_large_enough(uint32_t buffer_size, uint32_t samples, const char *operation)
{
    const uint32_t needed = buffer_size_for(samples);
    if (buffer_size >= needed)
    {
        return true;
    }
    library_log(ZET_LOG_LEVEL_ERROR, "%s: the buffer has %lu bytes, but needs %lu", operation,
                static_cast<unsigned long>(buffer_size), static_cast<unsigned long>(needed));
    return false;
}

/** Opens the calibration for a prepare. */
bool open_calibration(const zet_sensor &sensor, const zet_cal_result_t *result, calibration &opened)
{
    if (result == nullptr || !calibration_open(*result, opened))
    {
        library_log(ZET_LOG_LEVEL_ERROR,
                    "zet_sensor_prepare: the calibration result for sensor %lu is damaged or incomplete",
                    static_cast<unsigned long>(sensor.id));
        return false;
    }
    if (opened.sensor_id != sensor.id)
    {
        library_log(ZET_LOG_LEVEL_WARNING,
                    "zet_sensor_prepare: sensor %lu gets the calibration of sensor %lu; its carrier "
                    "frequency will be wrong",
                    static_cast<unsigned long>(sensor.id), static_cast<unsigned long>(opened.sensor_id));
    }
    return true;
}

/** Checks that a sensor is not in the middle of a calibration. */
bool is_not_calibrating(const zet_sensor &sensor)
{
    if (sensor.calibration_step == 0U ||
        sensor.calibration_resets != board_find_sensor(sensor.id)->reset_count)
    {
        return true;
    }
    library_log(
        ZET_LOG_LEVEL_ERROR,
        "zet_sensor_prepare: sensor %lu is in the middle of its calibration; finish it or reset the sensor",
        static_cast<unsigned long>(sensor.id));
    return false;
}

/** Returns whether a fault of the scene makes an operation fail, and logs the failure. */
bool has_fault(const zet_sensor &sensor, zet_simulator_fault_kind_t kind, const char *operation,
               const char *symptom)
{
    if (board_next_fault(kind, sensor.id) == nullptr)
    {
        return false;
    }
    library_log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu %s", operation, static_cast<unsigned long>(sensor.id),
                symptom);
    return true;
}

/** Checks that a sensor can start one more measurement. */
bool has_room(const zet_sensor &sensor, const char *operation)
{
    const auto id = static_cast<unsigned long>(sensor.id);
    const uint32_t slots = sensor.program.double_buffering ? frame_slots : 1U;
    if (sensor.frames_waiting > 0U &&
        board_now_us() < sensor.frames[sensor.frames_waiting - 1U].done.clock_us)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu is still measuring; wait for its interrupt",
                    operation, id);
        return false;
    }
    if (sensor.frames_waiting >= slots)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu has unread frames (%lu); read them first", operation,
                    id, static_cast<unsigned long>(sensor.frames_waiting));
        return false;
    }
    return true;
}

/** Sets the times of the next frame; logs how many frames are left out if it is too late. */
void place_frame(zet_sensor &sensor, measured_frame &frame)
{
    const uint64_t left_out = schedule_frame(sensor.program, sensor.grid, frame);
    frame.number = sensor.frame_count++;
    if (left_out > 0U)
    {
        library_log(ZET_LOG_LEVEL_VERBOSE, "sensor %lu: frame %lu is late, %lu frames are left out",
                    static_cast<unsigned long>(sensor.id), static_cast<unsigned long>(frame.number),
                    static_cast<unsigned long>(left_out));
    }
}

/** Waits as long as a slow link needs to transfer a frame. */
void transfer_frame(const zet_sensor &sensor)
{
    const zet_simulator_fault_t *slow = board_next_fault(ZET_SIMULATOR_FAULT_SLOW_LINK, sensor.id);
    if (slow != nullptr && slow->bytes_per_second > 0U)
    {
        const uint64_t size = buffer_size_for(sensor.program.sample_count);
        board_sleep_us(size * 1000000U / slow->bytes_per_second);
    }
}

/** Checks that there is a frame to read and that it is complete. */
bool has_frame(const zet_sensor &sensor, const char *operation)
{
    const auto id = static_cast<unsigned long>(sensor.id);
    if (sensor.frames_waiting == 0U)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu has no frame to read; measure one first", operation,
                    id);
        return false;
    }
    if (board_now_us() < sensor.frames[0].done.clock_us)
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: sensor %lu is still measuring; wait for its interrupt",
                    operation, id);
        return false;
    }
    return true;
}

} // namespace

bool zet_sensor_prepare(zet_sensor_t *sensor, const zet_config_t *config, const zet_cal_result_t *cal_result,
                        void *buffer, uint32_t buffer_size)
{
    zet_sensor *found = sensor_find(sensor, __func__);
    const zet_config *found_config = config_find(config, __func__);
    calibration calibration;
    if (found == nullptr || found_config == nullptr || !buffer_is_usable(buffer, __func__) ||
        !sensor_is_on(*found, __func__) || !is_not_calibrating(*found) ||
        !open_calibration(*found, cal_result, calibration) || !config_is_valid(*found_config) ||
        !is_large_enough(buffer_size, samples_per_frame(*found_config), __func__))
    {
        return false;
    }
    sensor_forget_measurements(*found);
    if (has_fault(*found, ZET_SIMULATOR_FAULT_FAILING_PREPARE, __func__, "does not accept its program"))
    {
        return false;
    }
    parameter_block block;
    parameter_block_fill(*found_config, &calibration.parameters, block);
    if (!probe_fire(ZET_PROBE_ID_MEAS_SESSION_PARAMETERS, found->id, &block, sizeof(block)))
    {
        library_log(ZET_LOG_LEVEL_ERROR, "%s: the probe refused the parameters of sensor %lu", __func__,
                    static_cast<unsigned long>(found->id));
        return false;
    }
    found->program = program_of(*found, *found_config, block, calibration);
    return true;
}

bool zet_sensor_measure(zet_sensor_t *sensor)
{
    zet_sensor *found = sensor_find(sensor, __func__);
    if (found == nullptr || !sensor_is_on(*found, __func__) || !program_is_loaded(*found, __func__) ||
        !has_room(*found, __func__) ||
        has_fault(*found, ZET_SIMULATOR_FAULT_FAILING_MEASURE, __func__, "does not start"))
    {
        return false;
    }
    measured_frame &frame = found->frames[found->frames_waiting];
    board_start_scene();
    place_frame(*found, frame);
    ++found->frames_waiting;
    board_schedule_interrupt(found->id, frame.done);
    return true;
}

bool zet_sensor_read(const zet_sensor_t *sensor, void *buffer, uint32_t buffer_size)
{
    zet_sensor *found = sensor_find(sensor, __func__);
    if (found == nullptr || !buffer_is_usable(buffer, __func__) || !sensor_is_on(*found, __func__) ||
        !program_is_loaded(*found, __func__) ||
        !is_large_enough(buffer_size, found->program.sample_count, __func__) ||
        !has_frame(*found, __func__) ||
        has_fault(*found, ZET_SIMULATOR_FAULT_FAILING_READ, __func__, "has a disturbed link"))
    {
        return false;
    }
    transfer_frame(*found);
    frame_write(*found, found->frames[0], buffer);
    --found->frames_waiting;
    found->frames[0] = found->frames[1];
    return true;
}
