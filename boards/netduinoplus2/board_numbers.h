/** @file
 * The numbers of the Netduino Plus 2 (STM32F405RG).
 */
#ifndef VANTOR_BOARD_NUMBERS_H
#define VANTOR_BOARD_NUMBERS_H

enum
{
    BOARD_CORE_CLOCK_HZ = 168000000,
    BOARD_INTERRUPT_COUNT = 82,
    BOARD_AREA_COUNT = 2,
    BOARD_LONGEST_WAIT_US = 500000,

    BOARD_LINK_INTERRUPT = 37,      /**< USART1 */
    BOARD_LINK_SEND_INTERRUPT = 37, /**< the same */
    BOARD_LINK_START_BAUDRATE = 115200,
    BOARD_LINK_MAX_BAUDRATE = 2000000,

    BOARD_RING_SIZE = 2048,
    BOARD_SEND_RING_SIZE = 2048,
    BOARD_LINE_SIZE = 8192,
    BOARD_MAX_VALUES = 768,
    BOARD_TOLERATED_LOSS = 4096,

    BOARD_SENSOR_COUNT = 2,
    BOARD_SENSOR_MAX_TRANSFER = 65535,
    BOARD_SUPPLY_RISE_US = 1000,
    BOARD_SENSOR_RESET_US = 1000,
    BOARD_SENSOR_START_US = 5000,
};

/* The interrupts of lines 0 and 1. */
#define BOARD_SENSOR_INTERRUPTS                                                                              \
    {                                                                                                        \
        6, 7                                                                                                 \
    }

#endif
