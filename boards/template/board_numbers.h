/** @file
 * The numbers of a board: set each of them.
 */
#ifndef VANTOR_BOARD_NUMBERS_H
#define VANTOR_BOARD_NUMBERS_H

enum
{
    BOARD_CORE_CLOCK_HZ = 100000000, /**< clock of the processor, as set by board_start */
    BOARD_INTERRUPT_COUNT = 64,      /**< of the chip; all interrupt numbers below are smaller */
    BOARD_AREA_COUNT = 1,            /**< board_areas of board.cpp, 1 or 2 */
    BOARD_LONGEST_WAIT_US = 500000,  /**< below half of the watchdog's period */

    BOARD_LINK_INTERRUPT = 10,
    BOARD_LINK_SEND_INTERRUPT = 10, /**< may be the same */
    BOARD_LINK_START_BAUDRATE = 115200,
    BOARD_LINK_MAX_BAUDRATE = 1000000, /**< 0: the baud rate is fixed */

    BOARD_RING_SIZE = 2048,      /**< input that a host sends during a frame; a power of two */
    BOARD_SEND_RING_SIZE = 2048, /**< output that waits while the next frame is measured; a power of two */
    BOARD_LINE_SIZE = 8192,      /**< the longest command plus 1 */
    BOARD_MAX_VALUES = 448,      /**< JSON values in a command, 64 bytes each; at most half of the heap */
    BOARD_TOLERATED_LOSS = 4096, /**< how much heap may leak before the board restarts */

    BOARD_SENSOR_COUNT = 2,           /**< positions, with or without a sensor: 1 to 32 */
    BOARD_SENSOR_MAX_TRANSFER = 4096, /**< most bytes in a call of board_sensor_transfer */
    BOARD_SUPPLY_RISE_US = 1000,      /**< from supply to enable, from the sensor's data sheet */
    BOARD_SENSOR_RESET_US = 1000,     /**< enable line released, so that the sensor is reset */
    BOARD_SENSOR_START_US = 5000,     /**< from enable to the first transfer */
};

/* All interrupts of the sensors: one for all of them, or separate ones. */
#define BOARD_SENSOR_INTERRUPTS                                                                              \
    {                                                                                                        \
        20                                                                                                   \
    }

#endif
