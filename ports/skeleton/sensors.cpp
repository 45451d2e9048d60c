/** @file
 * The board's sensors: supply, enable lines, interrupts, and the record of the board for the sensor library.
 */
#include "sensors.h"

#include "board.h"
#include "clock.h"
#include "cortex_m4.h"
#include "interrupts.h"
#include "zet_hal_integration_k330.h"
#include "zet_integration.h"
#include "zet_integration_log.h"

namespace
{

/** Sensors that have signalled and were not waited for yet, sensor 1 in the lowest bit. */
volatile uint32_t signalled;

/** Takes the signal of a sensor, if it has come. To be called with interrupts held back. */
bool take_signal(zet_sensor_id_t sensor_id)
{
    const uint32_t bit = 1U << (sensor_id - 1U);
    const bool taken = (signalled & bit) != 0U;
    signalled = signalled & ~bit;
    return taken;
}

/** Exchanges bytes with a sensor. */
void transfer(zet_sensor_id_t sensor_id, uint8_t *buffer, size_t size)
{
    board_sensor_select(sensor_id, true);
    for (size_t i = 0; i < size; ++i)
    {
        buffer[i] = board_sensor_exchange(buffer[i]);
    }
    board_sensor_select(sensor_id, false);
}

constexpr zet_hal_k330_t hal = {
    .max_spi_transfer_size = UINT16_MAX,
    .mem_alloc = zet_integration_mem_alloc,
    .mem_free = zet_integration_mem_free,
    .transfer = transfer,
    .log = zet_integration_log,
    .optimization = {.transfer16 = nullptr},
};

} // namespace

void sensor_handler()
{
    signalled = signalled | board_sensor_take_interrupts();
}

void sensors_start()
{
    cortex_m4::enable_interrupt(BOARD_SENSOR_INTERRUPT);
}

void zet_hal_integration_sensor_supply_on(zet_sensor_id_t sensor_id)
{
    board_sensor_set_supply(sensor_id, true);
    clock_delay_us(BOARD_SUPPLY_RISE_US);
}

void zet_hal_integration_sensor_supply_off(zet_sensor_id_t sensor_id)
{
    board_sensor_set_supply(sensor_id, false);
}

void zet_hal_integration_sensor_enable(zet_sensor_id_t sensor_id)
{
    board_sensor_set_enable(sensor_id, true);
    clock_delay_us(BOARD_SENSOR_START_US);
    // What the line did before is none of the sensor's signals.
    const cortex_m4::interrupt_lock lock;
    (void)take_signal(sensor_id);
}

void zet_hal_integration_sensor_disable(zet_sensor_id_t sensor_id)
{
    board_sensor_set_enable(sensor_id, false);
    clock_delay_us(BOARD_SENSOR_RESET_US);
}

bool zet_hal_integration_wait_for_sensor_interrupt(zet_sensor_id_t sensor_id, uint32_t timeout_ms)
{
    const uint64_t deadline = clock_now_us() + uint64_t{timeout_ms} * 1000U;
    for (;;)
    {
        const cortex_m4::interrupt_lock lock;
        if (take_signal(sensor_id))
        {
            return true;
        }
        if (!clock_sleep_until_interrupt(deadline))
        {
            return false;
        }
    }
}

uint16_t zet_hal_integration_sensor_count(void)
{
    return BOARD_SENSOR_COUNT;
}

const zet_hal_k330_t *zet_hal_nox_integration_get_implementation(void)
{
    return &hal;
}
