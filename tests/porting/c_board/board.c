/** @file
 * The emulated netduinoplus2 in C, with only the functions for simulated sensors. counter.S reads its
 * counter.
 */
#include "board.h"

enum
{
    TIM2 = 0x40000000,
    USART2 = 0x40004400,
    USART1 = 0x40011000,

    TICKS_PER_US = 1000, /**< of the emulator's counter */
    LINK_CLOCK_HZ = 84000000,
    LOG_CLOCK_HZ = 42000000,

    USART_DAMAGED = 0xF,
    USART_RECEIVED = 1 << 5,
    USART_ALL_SENT = 1 << 6,
    USART_CAN_TAKE = 1 << 7
};

static volatile uint32_t *register_at(uintptr_t address)
{
    return (volatile uint32_t *)address;
}

const board_area_t board_areas[BOARD_AREA_COUNT] = {
    {.name = "peripherals", .begin = 0x40000000, .size = 0x20000000, .rights = BOARD_DEVICES},
};

void board_start(void)
{
    *register_at(TIM2 + 0x28) = TICKS_PER_US - 1;
    *register_at(TIM2 + 0x2C) = UINT32_MAX;
    *register_at(TIM2 + 0x14) = 1;
    *register_at(TIM2) = 1;
    *register_at(USART2 + 0x08) = LOG_CLOCK_HZ / 115200;
    *register_at(USART2 + 0x0C) = 1U << 13 | 1U << 3;
}

bool board_log_can_send(void)
{
    return (*register_at(USART2) & USART_CAN_TAKE) != 0;
}

void board_log_send(uint8_t byte)
{
    *register_at(USART2 + 0x04) = byte;
}

void board_link_open(uint32_t baudrate)
{
    *register_at(USART1 + 0x08) = LINK_CLOCK_HZ / baudrate;
    *register_at(USART1 + 0x0C) = 1U << 13 | 1U << 5 | 1U << 3 | 1U << 2;
}

bool board_link_can_send(void)
{
    return (*register_at(USART1) & USART_CAN_TAKE) != 0;
}

void board_link_send(uint8_t byte)
{
    *register_at(USART1 + 0x04) = byte;
}

bool board_link_is_drained(void)
{
    return (*register_at(USART1) & USART_ALL_SENT) != 0;
}

bool board_link_receive(uint8_t *byte)
{
    const uint32_t state = *register_at(USART1);
    if ((state & (USART_RECEIVED | USART_DAMAGED)) == 0)
    {
        return false;
    }
    const uint8_t data = (uint8_t)*register_at(USART1 + 0x04);
    *byte = (state & USART_DAMAGED) != 0 ? 0 : data;
    return true;
}
