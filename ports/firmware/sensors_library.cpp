/** @file
 * Real sensors: supply, enable lines, interrupts, and the board record for the sensor library.
 */
#include <atomic>

#include "board.h"
#include "clock.h"
#include "host.h"
#include "interrupts.h"
#include "sensors.h"
#include "zet_hal_integration_k330.h"
#include "zet_integration.h"
#include "zet_integration_log.h"

namespace
{

/** Sensors that have signalled and have not been waited for, sensor 1 in the lowest bit. */
std::atomic<uint32_t> signalled;

/** The sensor being waited for, as a bit. */
uint32_t awaited;

/** Sensors whose supply is on. */
uint32_t supplied;

uint32_t bit_of(zet_sensor_id_t sensor_id)
{
    return 1U << (sensor_id - 1U);
}

/** Whether the last wait ended with the signal of its sensor. */
bool has_signalled;

/** Clears the signal of the awaited sensor; returns whether it was set. */
bool take_signal()
{
    return (signalled.fetch_and(~awaited) & awaited) != 0U;
}

/** Returns whether the wait for a sensor is over. */
bool is_wait_over()
{
    has_signalled = take_signal();
    return has_signalled || host_ends_wait();
}

void await(zet_sensor_id_t sensor_id)
{
    awaited = bit_of(sensor_id);
}

constexpr zet_hal_k330_t hal = {
    .max_spi_transfer_size = BOARD_SENSOR_MAX_TRANSFER,
    .mem_alloc = zet_integration_mem_alloc,
    .mem_free = zet_integration_mem_free,
    .transfer = board_sensor_transfer,
    .log = zet_integration_log,
    .optimization = {.transfer16 = nullptr},
};

} // namespace

void sensor_handler()
{
    signalled |= board_sensor_take_interrupts();
    board_wake();
}

const char *sensors_kind()
{
    return "library";
}

bool sensors_start()
{
    enable_sensor_interrupts();
    return true;
}

uint64_t sensors_now_us()
{
    return clock_now_us();
}

bool sensors_have_virtual_clock()
{
    return false;
}

void sensors_advance_clock(uint32_t /*duration_us*/)
{
}

void zet_hal_integration_sensor_supply_on(zet_sensor_id_t sensor_id)
{
    board_sensor_set_supply(sensor_id, true);
    supplied |= bit_of(sensor_id);
    clock_delay_us(BOARD_SUPPLY_RISE_US);
}

void zet_hal_integration_sensor_supply_off(zet_sensor_id_t sensor_id)
{
    board_sensor_set_supply(sensor_id, false);
    supplied &= ~bit_of(sensor_id);
}

// After an error the server may enable a sensor that has no supply. It must not be powered through its pins.
void zet_hal_integration_sensor_enable(zet_sensor_id_t sensor_id)
{
    if ((supplied & bit_of(sensor_id)) == 0U)
    {
        return;
    }
    board_sensor_set_enable(sensor_id, true);
    clock_delay_us(BOARD_SENSOR_START_US);
    // An edge of the line before this is not a signal of the sensor.
    await(sensor_id);
    (void)take_signal();
}

void zet_hal_integration_sensor_disable(zet_sensor_id_t sensor_id)
{
    board_sensor_set_enable(sensor_id, false);
    clock_delay_us(BOARD_SENSOR_RESET_US);
}

bool zet_hal_integration_wait_for_sensor_interrupt(zet_sensor_id_t sensor_id, uint32_t timeout_ms)
{
    await(sensor_id);
    (void)clock_wait_until(clock_now_us() + uint64_t{timeout_ms} * 1000U, is_wait_over);
    return has_signalled;
}

uint16_t zet_hal_integration_sensor_count(void)
{
    return BOARD_SENSOR_COUNT;
}

const zet_hal_k330_t *zet_hal_nox_integration_get_implementation(void)
{
    return &hal;
}
