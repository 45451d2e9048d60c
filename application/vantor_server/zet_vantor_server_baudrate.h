/** @file
 * The baud rate of the link of the server core.
 */
#ifndef ZET_VANTOR_SERVER_BAUDRATE_H
#define ZET_VANTOR_SERVER_BAUDRATE_H

#include <cstdint>

/** Returns whether the baud rate can be changed, and changed back in time. */
bool zet_server_can_change_baudrate();

/** Discards all input that has been received but not executed. */
void zet_server_discard_input();

/** Changes the baud rate of the link. */
void zet_server_change_baudrate(uint32_t baudrate);

/** Returns to the last confirmed baud rate when the host has not confirmed the new one in time. */
void zet_server_watch_baudrate();

/** Returns whether the link can run at a baud rate; reports an error to the host if not. */
bool zet_server_accept_baudrate(uint32_t baudrate);

#endif
