/** @file
 * The board: supply and enable lines, interrupts, the link to the sensors, and the board record for the
 * sensor library.
 */
#include "board/board.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "zet_hal_integration_k330.h"
#include "zet_integration.h"
#include "zet_integration_log.h"

namespace
{

using namespace zet_simulator;

/** The board's state; all zero while the simulator is stopped. */
struct board
{
    bool running;
    zet_simulator_options_t options;
    board_sensor *sensors; /**< options.sensor_count entries, owned */
    uint32_t fault_calls[ZET_SIMULATOR_MAX_FAULTS];
    board_session session;
    uint64_t ideal_us;      /**< time of the ideal clock, unless the board's clock is virtual */
    uint32_t session_count; /**< begun so far */
    board_sensor
        *tick_awaited; /**< whose interrupt has come, and whose tick is not known yet; null if none */
};

board the_board;

constexpr char module_name[] = "board";

/** Returns the sensor position of an id; null, with a log line, when there is none. */
board_sensor *find_or_log(zet_sensor_id_t sensor_id, const char *operation)
{
    board_sensor *sensor = board_find_sensor(sensor_id);
    if (sensor == nullptr)
    {
        zet_integration_log(
            ZET_LOG_LEVEL_ERROR, module_name, "%s: sensor %lu does not exist; the board has %u", operation,
            static_cast<unsigned long>(sensor_id), static_cast<unsigned>(the_board.options.sensor_count));
    }
    return sensor;
}

/** Resets a sensor, as a loss of power and its enable line do. */
void reset(board_sensor &sensor)
{
    ++sensor.reset_count;
    sensor.interrupt.clock_us = no_interrupt;
}

/** Returns when the scene starts, on the board's clock: at a given time unless the scene has a clock of its
 * own.
 */
double scene_start_us(double otherwise_us)
{
    const auto scene_now_us = the_board.options.scene_now_us;
    return scene_now_us != nullptr ? static_cast<double>(board_now_us()) -
                                         static_cast<double>(scene_now_us()) * board_clock_rate()
                                   : otherwise_us;
}

/** Returns whether a fault of the scene is of a kind and affects a sensor. */
bool fault_matches(const zet_simulator_fault_t &fault, zet_simulator_fault_kind_t kind,
                   zet_sensor_id_t sensor_id)
{
    return fault.kind == kind && (fault.sensor_id == 0U || fault.sensor_id == sensor_id);
}

/** Returns whether a fault makes a call fail; calls are counted from 0. */
bool fault_affects(const zet_simulator_fault_t &fault, uint32_t call)
{
    return call >= fault.skip && (fault.count == 0U || call - fault.skip < fault.count);
}

/** Transfers bytes on the link: a sensor that is present and switched on answers the identify command. */
void transfer(zet_sensor_id_t sensor_id, uint8_t *buffer, size_t size)
{
    if (buffer == nullptr || size == 0U)
    {
        return;
    }
    const bool asks_identity = buffer[0] == link_command_identify;
    std::memset(buffer, 0xFF, size);
    if (!board_sensor_is_on(sensor_id) ||
        board_next_fault(ZET_SIMULATOR_FAULT_ABSENT_SENSOR, sensor_id) != nullptr)
    {
        return;
    }
    if (asks_identity && size > sizeof(link_identity))
    {
        std::memcpy(&buffer[1], link_identity, sizeof(link_identity));
    }
}

/** Checks the scene of a port; writes what is wrong with it to the port's log. */
bool is_scene_usable(const zet_simulator_options_t &options)
{
    char error[256];
    if (options.scene == nullptr ||
        (zet_simulator_scene_is_valid(options.scene, error, sizeof(error)) &&
         zet_simulator_scene_fits_board(options.scene, options.sensor_count, error, sizeof(error))))
    {
        return true;
    }
    if (options.log != nullptr)
    {
        options.log(ZET_LOG_LEVEL_ERROR, module_name, error);
    }
    return false;
}

/** Waits for a sensor until a time; false when nobody needs the measurement any more. */
bool wait_until(const instant &time)
{
    if (the_board.options.wait_until_us == nullptr)
    {
        the_board.options.clock.sleep_until_us(time.clock_us);
    }
    else if (!the_board.options.wait_until_us(time.clock_us))
    {
        return false;
    }
    the_board.ideal_us = std::max(the_board.ideal_us, time.ideal_us);
    return true;
}

const zet_hal_k330_t hal = {
    UINT16_MAX, zet_integration_mem_alloc, zet_integration_mem_free, transfer, zet_integration_log, {nullptr},
};

} // namespace

namespace zet_simulator
{

board_sensor *board_find_sensor(zet_sensor_id_t sensor_id)
{
    if (!the_board.running || sensor_id == 0U || sensor_id > the_board.options.sensor_count)
    {
        return nullptr;
    }
    return &the_board.sensors[sensor_id - 1U];
}

bool board_sensor_is_on(zet_sensor_id_t sensor_id)
{
    const board_sensor *sensor = board_find_sensor(sensor_id);
    return sensor != nullptr && sensor->supplied && sensor->enabled;
}

const zet_simulator_options_t &board_options()
{
    return the_board.options;
}

const zet_simulator_scene_t &board_scene()
{
    return the_board.options.scene != nullptr ? *the_board.options.scene : *zet_simulator_default_scene();
}

board_session &board_current_session()
{
    return the_board.session;
}

void board_count_handle()
{
    board_session &session = the_board.session;
    if (session.handle_count++ > 0U)
    {
        return;
    }
    session.has_frames = false;
    session.scene_start_us = scene_start_us(HUGE_VAL);
    ++the_board.session_count;
    if (the_board.options.observer.session != nullptr)
    {
        the_board.options.observer.session(the_board.session_count);
    }
}

uint32_t board_session_number()
{
    return the_board.session_count;
}

double board_clock_rate()
{
    return 1.0 + the_board.options.clock_error;
}

uint64_t board_now_us()
{
    return the_board.running ? the_board.options.clock.now_us() : 0U;
}

instant board_now()
{
    const uint64_t now_us = board_now_us();
    // Computing takes no time on the virtual clock.
    const bool is_ideal = the_board.options.clock.now_us == zet_simulator_virtual_clock().now_us;
    return {now_us, is_ideal ? now_us : the_board.ideal_us};
}

void board_start_scene()
{
    if (!the_board.session.has_frames)
    {
        the_board.session.has_frames = true;
        the_board.ideal_us = board_now_us();
        const auto now_us = static_cast<double>(the_board.ideal_us);
        the_board.session.scene_start_us = scene_start_us(now_us);
    }
}

void board_sleep_us(uint64_t duration_us)
{
    if (the_board.running)
    {
        the_board.options.clock.sleep_until_us(board_now_us() + duration_us);
        the_board.ideal_us += duration_us;
    }
}

void board_schedule_interrupt(zet_sensor_id_t sensor_id, const instant &time)
{
    board_sensor *sensor = board_find_sensor(sensor_id);
    if (sensor == nullptr)
    {
        return;
    }
    const bool lost = board_next_fault(ZET_SIMULATOR_FAULT_LOST_INTERRUPT, sensor_id) != nullptr;
    sensor->interrupt = {lost ? no_interrupt : time.clock_us, time.ideal_us};
}

const zet_simulator_fault_t *board_next_fault(zet_simulator_fault_kind_t kind, zet_sensor_id_t sensor_id)
{
    const zet_simulator_scene_t &scene = board_scene();
    const zet_simulator_fault_t *found = nullptr;
    for (uint32_t i = 0; i < scene.fault_count; ++i)
    {
        const zet_simulator_fault_t &fault = scene.faults[i];
        if (fault_matches(fault, kind, sensor_id) && fault_affects(fault, the_board.fault_calls[i]++) &&
            found == nullptr)
        {
            found = &fault;
        }
    }
    return found;
}

} // namespace zet_simulator

bool zet_simulator_start(const zet_simulator_options_t *options)
{
    if (the_board.running || options == nullptr || options->clock.now_us == nullptr ||
        options->clock.sleep_until_us == nullptr || !is_scene_usable(*options))
    {
        return false;
    }
    const size_t size = options->sensor_count * sizeof(board_sensor);
    auto *sensors = static_cast<board_sensor *>(zet_integration_mem_alloc(size));
    if (sensors == nullptr)
    {
        return false;
    }
    std::memset(static_cast<void *>(sensors), 0, size);
    for (uint32_t i = 0; i < options->sensor_count; ++i)
    {
        sensors[i].interrupt.clock_us = no_interrupt;
    }
    the_board = {};
    the_board.running = true;
    the_board.options = *options;
    the_board.sensors = sensors;
    return true;
}

void zet_simulator_stop(void)
{
    zet_integration_mem_free(the_board.sensors);
    the_board = {};
}

void zet_simulator_note_tick(uint32_t tick)
{
    if (the_board.tick_awaited != nullptr)
    {
        the_board.tick_awaited->tick = tick;
        the_board.tick_awaited = nullptr;
    }
}

void zet_hal_integration_sensor_supply_on(zet_sensor_id_t sensor_id)
{
    board_sensor *sensor = find_or_log(sensor_id, __func__);
    if (sensor != nullptr && !sensor->supplied)
    {
        sensor->supplied = true;
        reset(*sensor);
    }
}

void zet_hal_integration_sensor_supply_off(zet_sensor_id_t sensor_id)
{
    board_sensor *sensor = find_or_log(sensor_id, __func__);
    if (sensor != nullptr && sensor->supplied)
    {
        sensor->supplied = false;
        reset(*sensor);
    }
}

void zet_hal_integration_sensor_enable(zet_sensor_id_t sensor_id)
{
    board_sensor *sensor = find_or_log(sensor_id, __func__);
    if (sensor != nullptr && !sensor->enabled)
    {
        sensor->enabled = true;
        reset(*sensor);
    }
}

void zet_hal_integration_sensor_disable(zet_sensor_id_t sensor_id)
{
    board_sensor *sensor = find_or_log(sensor_id, __func__);
    if (sensor != nullptr && sensor->enabled)
    {
        sensor->enabled = false;
        reset(*sensor);
    }
}

bool zet_hal_integration_wait_for_sensor_interrupt(zet_sensor_id_t sensor_id, uint32_t timeout_ms)
{
    board_sensor *sensor = find_or_log(sensor_id, __func__);
    if (sensor == nullptr)
    {
        return false;
    }
    const instant now = board_now();
    const uint64_t timeout_us = uint64_t{timeout_ms} * 1000U;
    const instant deadline = {now.clock_us + timeout_us, now.ideal_us + timeout_us};
    the_board.tick_awaited = nullptr;
    const bool comes = sensor->interrupt.clock_us <= deadline.clock_us;
    if (!wait_until(comes ? sensor->interrupt : deadline) || !comes)
    {
        return false;
    }
    sensor->interrupt.clock_us = no_interrupt;
    the_board.tick_awaited = sensor;
    return true;
}

uint16_t zet_hal_integration_sensor_count(void)
{
    return the_board.options.sensor_count;
}

const zet_hal_k330_t *zet_hal_nox_integration_get_implementation(void)
{
    return the_board.running ? &hal : nullptr;
}
