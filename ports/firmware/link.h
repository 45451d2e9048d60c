/** @file
 * The link to the host: a serial port, with a ring for what arrives while the server is busy.
 */
#ifndef VANTOR_FIRMWARE_LINK_H
#define VANTOR_FIRMWARE_LINK_H

#include <cstddef>
#include <cstdint>

/** Opens the link, empty, at the first baud rate; a link that has stalled works again. */
void link_open();

/**
 * Sends to the host. Waits while the port takes nothing, for some seconds; then the link counts as stalled,
 * and what is sent is dropped until link_open.
 */
void link_write(const void *data, uint32_t size);

/** Returns whether the port has taken nothing for so long that the host counts as gone. */
bool link_is_stalled();

/** Returns whether something has arrived. */
bool link_has_input();

/**
 * Reads what has arrived. Where bytes were lost for want of room there is a zero byte in their place, which
 * no command contains.
 *
 * @return the number of bytes
 */
size_t link_read(char *data, size_t size);

/** Discards what has arrived and was not read. */
void link_discard_input();

/** Waits until everything has been sent, unless the link has stalled. */
void link_drain();

/** Changes the baud rate once everything has been sent. */
void link_set_baudrate(uint32_t baudrate);

#endif
