/** @file
 * The link to the host: a serial port, with ring buffers for bytes that arrive while the server is
 * busy, and for bytes that are sent while it measures.
 */
#ifndef VANTOR_FIRMWARE_LINK_H
#define VANTOR_FIRMWARE_LINK_H

#include <cstddef>
#include <cstdint>

/** How long the port may accept no byte, in seconds. */
constexpr uint32_t link_stall_limit_s = 5;

/** Opens the link at the initial baud rate, without input and output. A link that has stalled works again
 * then. */
void link_open();

/**
 * Copies bytes, which interrupts send to the host later. Waits while there is no room for them. If the port
 * has no interrupt for sending, it waits until they have been sent. If the port accepts nothing for
 * link_stall_limit_s, the link counts as stalled: the rest is dropped, and so is all output until link_open.
 */
void link_write(const void *data, uint32_t size);

/** Returns whether some output has not been sent yet. */
bool link_is_sending();

/** Returns whether the link has stalled, so that the host counts as gone. */
bool link_is_stalled();

/** Returns whether there is unread input. */
bool link_has_input();

/**
 * Reads input. Bytes that were lost because there was no room are replaced by one zero byte, which no command
 * contains.
 *
 * @return the number of bytes
 */
size_t link_read(char *data, size_t size);

/**
 * Copies input that was not copied before, and leaves it unread.
 *
 * @return the number of bytes
 */
size_t link_look_ahead(char *data, size_t size);

/** Discards unread input. */
void link_discard_input();

/** Sends the output that waits, without interrupts and clock. To be called when the program has failed. */
void link_send_rest();

/** Waits until everything has been sent, unless the link has stalled. */
void link_drain();

/** Changes the baud rate after everything has been sent. */
void link_set_baudrate(uint32_t baudrate);

#endif
