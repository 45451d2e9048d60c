/** @file
 * A serial port of the board (a CMSDK APB UART: 8 data bits, no parity, 1 stop bit, no flow control).
 */
#ifndef VANTOR_MPS2_AN386_UART_H
#define VANTOR_MPS2_AN386_UART_H

#include <cstddef>
#include <cstdint>

/** Serial ports of the board, by the addresses of their registers. */
enum class uart_t : uintptr_t
{
    link = 0x40004000U,
    log = 0x40005000U,
};

/** Highest speed, in baud. */
constexpr uint32_t uart_max_baudrate = 25000000U / 16U;

/**
 * Switches a port on, or to another speed.
 *
 * @param baudrate  in baud, up to uart_max_baudrate; the nearest speed that can be had is set
 * @param receive   receives, too, and interrupts for what comes
 * @return the speed that was set
 */
uint32_t uart_open(uart_t uart, uint32_t baudrate, bool receive);

/** Tells whether a byte can be sent now. */
bool uart_can_send(uart_t uart);

/** Sends a byte. Only after uart_can_send. */
void uart_send(uart_t uart, uint8_t byte);

/**
 * Takes a byte that has come, in the receive interrupt; a zero where bytes were lost because it came too
 * late.
 *
 * @return false when there is none left
 */
bool uart_receive(uart_t uart, uint8_t *byte);

#endif
