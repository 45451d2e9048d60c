/** @file
 * The link to the host: the first serial port, with a ring for what comes while the server is at work.
 */
#ifndef VANTOR_MPS2_AN386_LINK_H
#define VANTOR_MPS2_AN386_LINK_H

#include <cstddef>
#include <cstdint>

/** Speed of the link at the start, in baud. */
constexpr uint32_t link_start_baudrate = 115200;

/** Opens the link. To be called once. */
void link_open();

/**
 * Sends to the host. Waits while the host takes nothing, for some seconds; then the link counts as stalled,
 * and what is sent is dropped until link_restart.
 */
void link_write(const void *data, uint32_t size);

/** Tells whether the host has taken nothing for so long that it counts as gone. */
bool link_is_stalled();

/** Makes a stalled link anew, empty, at the speed of the start. */
void link_restart();

/** Tells whether something has come. May be called with interrupts held back. */
bool link_has_input();

/**
 * Reads what has come. Where bytes were lost for want of room there is a zero byte in their place, which no
 * command holds.
 *
 * @return the number of bytes
 */
size_t link_read(char *data, size_t size);

/** Discards what has come and was not read. */
void link_discard_input();

/** The speed of the link, in baud. */
uint32_t link_baudrate();

/** Changes the speed once everything has been sent. */
void link_set_baudrate(uint32_t baudrate);

#endif
