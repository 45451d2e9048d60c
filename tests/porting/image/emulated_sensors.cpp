/** @file
 * The sensors of the emulated board: those of the simulator, whose interrupts are real ones of a timer. The
 * interrupt line of one of them is cut, and one position is empty.
 */
#include <algorithm>

#include "board.h"
#include "board/board.h"
#include "clock.h"
#include "cortex_m4.h"
#include "emulated_registers.h"

namespace
{

using namespace zet_simulator;

constexpr zet_sensor_id_t sensor_with_cut_line = 3;
constexpr zet_sensor_id_t empty_position = 4;

board_sensor sensors[BOARD_SENSOR_COUNT];

/** When the lines become active, by the board's counter, and which of them are to. */
volatile uint32_t line_times[BOARD_SENSOR_COUNT];
volatile uint32_t awaited_lines;

/** The selected sensor, 0 for none, and how far the exchange with it is. */
zet_sensor_id_t selected;
uint32_t exchanged;
bool asked_for_identity;

const zet_simulator_options_t options = {.sensor_count = BOARD_SENSOR_COUNT,
                                         .seed = 1,
                                         .clock = {},
                                         .log = nullptr,
                                         .log_level = ZET_LOG_LEVEL_ERROR,
                                         .scene = nullptr};

uint32_t line_bit(zet_sensor_id_t sensor_id)
{
    return 1U << (sensor_id - 1U);
}

/** Microseconds until a line becomes active; negative when it should be already. */
int32_t line_delay(uint32_t line)
{
    return static_cast<int32_t>(line_times[line] - board_counter_us());
}

/** Makes the timer's interrupt come when the next line becomes active. */
void set_timer()
{
    int32_t delay = INT32_MAX;
    for (uint32_t line = 0; line < BOARD_SENSOR_COUNT; ++line)
    {
        if ((awaited_lines & 1U << line) != 0U)
        {
            delay = std::min(delay, line_delay(line));
        }
    }
    if (awaited_lines != 0U)
    {
        emulated_timer_set(emulated_timer_t::sensors, static_cast<uint32_t>(std::max<int32_t>(delay, 1)));
    }
}

/** Makes a sensor's line become active at a time of the board's counter. */
void await_line(zet_sensor_id_t sensor_id, uint32_t time_us)
{
    if (sensor_id != sensor_with_cut_line)
    {
        const cortex_m4::interrupt_lock lock;
        line_times[sensor_id - 1U] = time_us;
        awaited_lines = awaited_lines | line_bit(sensor_id);
        set_timer();
    }
}

/** Switches supply or enable line of a sensor, which then has forgotten everything. */
void set_line(zet_sensor_id_t sensor_id, bool board_sensor::*line, bool on)
{
    board_sensor &sensor = sensors[sensor_id - 1U];
    if (sensor.*line != on)
    {
        const cortex_m4::interrupt_lock lock;
        sensor.*line = on;
        sensor.reset_count++;
        awaited_lines = awaited_lines & ~line_bit(sensor_id);
    }
}

} // namespace

void board_sensor_set_supply(uint32_t sensor_id, bool on)
{
    set_line(sensor_id, &board_sensor::supplied, on);
}

void board_sensor_set_enable(uint32_t sensor_id, bool on)
{
    set_line(sensor_id, &board_sensor::enabled, on);
    if (on)
    {
        // While a sensor starts, its interrupt line is not at rest yet.
        await_line(sensor_id, board_counter_us());
    }
}

void board_sensor_select(uint32_t sensor_id, bool on)
{
    selected = on ? sensor_id : 0U;
    exchanged = 0;
    asked_for_identity = false;
}

uint8_t board_sensor_exchange(uint8_t byte)
{
    const uint32_t position = exchanged++;
    if (position == 0)
    {
        asked_for_identity = byte == link_command_identify;
        return UINT8_MAX;
    }
    const bool answers = asked_for_identity && selected != empty_position && board_sensor_is_on(selected) &&
                         position <= sizeof link_identity;
    return answers ? link_identity[position - 1U] : UINT8_MAX;
}

uint32_t board_sensor_take_interrupts(void)
{
    emulated_timer_clear(emulated_timer_t::sensors);
    uint32_t active = 0;
    for (uint32_t line = 0; line < BOARD_SENSOR_COUNT; ++line)
    {
        active |= line_delay(line) <= 0 ? awaited_lines & 1U << line : 0U;
    }
    awaited_lines = awaited_lines & ~active;
    set_timer();
    return active;
}

namespace zet_simulator
{

board_sensor *board_find_sensor(zet_sensor_id_t sensor_id)
{
    return sensor_id >= 1U && sensor_id <= BOARD_SENSOR_COUNT ? &sensors[sensor_id - 1U] : nullptr;
}

bool board_sensor_is_on(zet_sensor_id_t sensor_id)
{
    const board_sensor *sensor = board_find_sensor(sensor_id);
    return sensor != nullptr && sensor->supplied && sensor->enabled;
}

const zet_simulator_options_t &board_options()
{
    return options;
}

const zet_simulator_scene_t &board_scene()
{
    return *zet_simulator_default_scene();
}

uint64_t board_now_us()
{
    return clock_now_us();
}

void board_sleep_us(uint64_t duration_us)
{
    clock_delay_us(static_cast<uint32_t>(duration_us));
}

void board_schedule_interrupt(zet_sensor_id_t sensor_id, uint64_t time_us)
{
    await_line(sensor_id, static_cast<uint32_t>(time_us));
}

const zet_simulator_fault_t *board_next_fault(zet_simulator_fault_kind_t /*kind*/,
                                              zet_sensor_id_t /*sensor_id*/)
{
    return nullptr;
}

} // namespace zet_simulator
