/** @file
 * What the skeleton asks of a board. TO BE WRITTEN FOR EACH BOARD: every function here is declared only, and
 * the numbers are those of an imaginary board. Until all of it is there the firmware does not link.
 *
 * Nothing here waits, unless its comment says so. The functions may be written in C or C++.
 */
#ifndef VANTOR_SKELETON_BOARD_H
#define VANTOR_SKELETON_BOARD_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The numbers of the board. */
enum
{
    BOARD_SENSOR_COUNT = 4, /**< sensor positions, at most 32 */

    BOARD_SUPPLY_RISE_US = 1000,  /**< until a sensor's supply stands; from the board's schematic */
    BOARD_SENSOR_RESET_US = 1000, /**< shortest time without enable line; from the sensor's data sheet */
    BOARD_SENSOR_START_US = 5000, /**< until an enabled sensor is usable; from the sensor's data sheet */

    BOARD_LINK_START_BAUDRATE = 115200, /**< speed of the link at the start */
    BOARD_LINK_MAX_BAUDRATE = 1000000,  /**< highest speed of the link; 0 when it is fixed */

    /** Numbers of the interrupts, as in the controller's reference manual. */
    BOARD_LINK_INTERRUPT = 0,
    BOARD_SENSOR_INTERRUPT = 9,
    BOARD_ALARM_INTERRUPT = 8,
    BOARD_INTERRUPT_COUNT = 32, /**< entries of the vector table behind those of the core */
};

/** Makes the processor fast, gives the pins their functions and switches the ports on that are used below. */
void board_start(void);

/** Reads a counter that runs at 1 MHz from the start on, through all 32 bits, in sleep too. */
uint32_t board_counter_us(void);

/**
 * Makes the alarm's interrupt come once, after a time of at least 1 µs, or before that when the timer cannot
 * count so far. It must come even if the time has passed while the alarm is being set. Replaces an alarm that
 * is set. Called with interrupts held back.
 */
void board_alarm_set(uint32_t delay_us);

/** Acknowledges the alarm's interrupt, in its handler. */
void board_alarm_clear(void);

/** Switches the link's port on, or to another speed, with an interrupt for every byte that comes. */
void board_link_open(uint32_t baudrate);

/** Tells whether the link's port takes a byte. */
bool board_link_can_send(void);

/** Sends a byte over the link. Only after board_link_can_send. */
void board_link_send(uint8_t byte);

/** Tells whether the last bit has left the link's port. */
bool board_link_is_drained(void);

/**
 * Takes a byte that has come over the link and acknowledges its interrupt; false when there is none. Bytes
 * that were lost or damaged (overrun, wrong frame) are acknowledged, too, and given as one zero byte, which
 * no command holds. Called in the interrupt's handler.
 */
bool board_link_receive(uint8_t *byte);

/** Tells whether the log's port takes a byte. */
bool board_log_can_send(void);

/** Sends a byte to the log's port. Only after board_log_can_send. Works in a fault handler, too. */
void board_log_send(uint8_t byte);

/** Switches the supply of a sensor. Switching it to what it is already does nothing, as with the enable line.
 */
void board_sensor_set_supply(uint32_t sensor_id, bool on);

/** Drives the enable line of a sensor, or releases it. */
void board_sensor_set_enable(uint32_t sensor_id, bool on);

/** Drives the chip select of a sensor, or releases it, with the set-up and hold times that it needs. */
void board_sensor_select(uint32_t sensor_id, bool on);

/** Exchanges a byte with the selected sensor. Waits for as long as its eight bits take. */
uint8_t board_sensor_exchange(uint8_t byte);

/**
 * Tells which sensors' interrupt lines have become active since the last call, sensor 1 in the lowest bit,
 * and acknowledges their interrupts and no others, so that none is lost that comes meanwhile. Called in the
 * interrupt's handler.
 */
uint32_t board_sensor_take_interrupts(void);

#ifdef __cplusplus
}
#endif

#endif
