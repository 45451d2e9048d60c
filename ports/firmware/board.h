/** @file
 * What the firmware needs from a board: the functions that access its registers.
 *
 * A board is a folder with `board_numbers.h` (its numbers), C or C++ files with these functions, and
 * `memory.ld` (its memory). The linker names every function that is missing. No function waits unless its
 * comment says so.
 */
#ifndef VANTOR_BOARD_H
#define VANTOR_BOARD_H

#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "board_numbers.h"

/** Most areas that the memory protection unit has room for. */
#define BOARD_MOST_AREAS 2

static_assert(BOARD_CORE_CLOCK_HZ >= 1000000, "BOARD_CORE_CLOCK_HZ: at least 1 MHz");
static_assert(BOARD_INTERRUPT_COUNT >= 1, "BOARD_INTERRUPT_COUNT: at least 1");
static_assert(BOARD_AREA_COUNT >= 1 && BOARD_AREA_COUNT <= BOARD_MOST_AREAS,
              "BOARD_AREA_COUNT: 1 or 2 areas");
static_assert(BOARD_LONGEST_WAIT_US >= 1 && BOARD_LONGEST_WAIT_US <= 1000000000,
              "BOARD_LONGEST_WAIT_US: the counter wraps after 71 minutes, and no wrap may be missed");
static_assert(BOARD_LINK_INTERRUPT >= 0 && BOARD_LINK_INTERRUPT < BOARD_INTERRUPT_COUNT,
              "BOARD_LINK_INTERRUPT: less than BOARD_INTERRUPT_COUNT");
static_assert(BOARD_LINK_SEND_INTERRUPT >= 0 && BOARD_LINK_SEND_INTERRUPT < BOARD_INTERRUPT_COUNT,
              "BOARD_LINK_SEND_INTERRUPT: less than BOARD_INTERRUPT_COUNT");
static_assert(BOARD_LINK_START_BAUDRATE >= 1, "BOARD_LINK_START_BAUDRATE: at least 1");
static_assert(BOARD_LINK_MAX_BAUDRATE == 0 || BOARD_LINK_MAX_BAUDRATE >= BOARD_LINK_START_BAUDRATE,
              "BOARD_LINK_MAX_BAUDRATE: 0, or at least BOARD_LINK_START_BAUDRATE");
static_assert(BOARD_RING_SIZE >= 16 && (BOARD_RING_SIZE & (BOARD_RING_SIZE - 1)) == 0,
              "BOARD_RING_SIZE: a power of two, at least 16");
static_assert(BOARD_SEND_RING_SIZE >= 16 && (BOARD_SEND_RING_SIZE & (BOARD_SEND_RING_SIZE - 1)) == 0,
              "BOARD_SEND_RING_SIZE: a power of two, at least 16");
static_assert(BOARD_LINE_SIZE >= 128, "BOARD_LINE_SIZE: at least 128, for a small session");
static_assert(BOARD_MAX_VALUES >= 16, "BOARD_MAX_VALUES: at least 16, for a small session");
static_assert(BOARD_SENSOR_COUNT >= 1, "BOARD_SENSOR_COUNT: a board has at least one sensor");
static_assert(BOARD_SENSOR_COUNT <= 32, "BOARD_SENSOR_COUNT: a board has at most 32 sensors");

#ifdef __cplusplus
extern "C" {
#endif

/** What a program may do with an area of addresses. */
typedef enum
{
    BOARD_READ_ONLY, /**< read, such as a unique id */
    BOARD_DEVICES    /**< read and write registers */
} board_rights_t;

/** Addresses that the program may use besides code and memory. Neighbouring addresses may be opened too. */
typedef struct
{
    const char *name; /**< for the log, such as "peripherals" */
    uint32_t begin;   /**< first address */
    uint32_t size;    /**< in bytes; 0 opens nothing */
    board_rights_t rights;
} board_area_t;

/** The areas that the board opens, at most BOARD_MOST_AREAS; those of the processor are always open. */
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): constants
extern const board_area_t board_areas[BOARD_AREA_COUNT];

/** Sets the clock of the processor, configures the pins and switches on the ports that are used below. */
void board_start(void);

/** Reads a 32-bit counter that runs at 1 MHz from the start on, also during sleep. */
uint32_t board_counter_us(void);

/** Returns whether the log's port can accept a byte. */
bool board_log_can_send(void);

/** Sends a byte to the log's port. Called only after board_log_can_send. Must work in fault handlers too. */
void board_log_send(uint8_t byte);

/**
 * Switches the link's port on, or to another baud rate, with an interrupt for every byte that arrives and
 * without the one of board_link_set_send_interrupt. Called while the link's interrupts are disabled.
 */
void board_link_open(uint32_t baudrate);

/**
 * Returns whether the link's port can accept a byte. If the port has an interrupt for the moment when it
 * becomes able to, acknowledges it first. Called by the interrupt handler.
 */
bool board_link_can_send(void);

/** Sends a byte over the link. Called only after board_link_can_send, by the interrupt handler. */
void board_link_send(uint8_t byte);

/** Returns whether the port has sent everything; if it cannot detect this, whether its buffer is empty. */
bool board_link_is_drained(void);

/**
 * Reads a byte that arrived over the link and acknowledges its interrupt; false when there is none. Lost or
 * damaged bytes (overrun, framing error) are acknowledged too and reported as one zero byte, which no command
 * contains. Called by the interrupt handler.
 */
bool board_link_receive(uint8_t *byte);

/** @name For the sensors of a board
 * Not needed with -DVANTOR_SENSORS=simulator. Sensors are numbered from 1.
 * @{
 */

/** Switches the supply of a sensor. Switching to the current state has no effect. */
void board_sensor_set_supply(uint32_t sensor_id, bool on);

/** Drives the enable line of a sensor, or releases it. Switching to the current state has no effect. */
void board_sensor_set_enable(uint32_t sensor_id, bool on);

/**
 * Exchanges bytes with a sensor: asserts its chip select, transfers the bytes and releases the chip select,
 * with the set-up and hold times that the sensor needs. Waits until the last bit has been sent.
 *
 * @param buffer  bytes to send; receives the sensor's bytes
 * @param size    at most BOARD_SENSOR_MAX_TRANSFER
 */
void board_sensor_transfer(uint32_t sensor_id, uint8_t *buffer, size_t size);

/**
 * Returns which sensors' interrupt lines have become active since the last call, sensor 1 in the lowest bit,
 * and acknowledges exactly these interrupts, so that one that comes in between is not lost. Called by the
 * interrupt handler.
 */
uint32_t board_sensor_take_interrupts(void);

/** @} */

/** @name Optional functions of a board
 * The firmware has a default for each.
 * @{
 */

/**
 * Returns the actual baud rate of the link's port for a requested one; 0 when it has none near it. The server
 * refuses a rate that is more than 2 % off. Default: every rate is possible.
 */
uint32_t board_link_nearest_baudrate(uint32_t baudrate);

/**
 * Switches the interrupt BOARD_LINK_SEND_INTERRUPT on or off, which comes as long as the link's port can
 * accept a byte, or as soon as it can again. With it, a frame is measured while the previous one is still
 * being sent. Called by the interrupt handler, and once without interrupts.
 *
 * @return whether the port has such an interrupt. Default: false; the firmware polls the port.
 */
bool board_link_set_send_interrupt(bool on);

/**
 * Restarts the watchdog's count. Called at least every BOARD_LONGEST_WAIT_US while the firmware waits; during
 * a command that configures many sensors the time between two calls is longer. Default: does nothing.
 */
void board_feed_watchdog(void);

/**
 * Waits until board_wake has been called since the last wait, or for a time. May return early. Never called
 * with interrupts disabled. Default: the processor sleeps until an interrupt; SysTick ends the sleep in
 * time, and nothing else may use SysTick.
 *
 * @param duration_us  1 to BOARD_LONGEST_WAIT_US
 */
void board_wait(uint32_t duration_us);

/** Ends the current or the next board_wait. Called by interrupt handlers. With an RTOS: gives a semaphore. */
void board_wake(void);

/**
 * Returns why the board was reset, such as "watchdog" (up to 23 characters), from a register of the chip;
 * null when it is unknown. Called once, before board_start.
 */
const char *board_reset_cause(void);

/** Returns an identifier of this board, such as the chip's serial number, or null. Must stay valid. */
const char *board_id(void);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
