/** @file
 * The commands of the server core.
 */
#ifndef ZET_VANTOR_SERVER_COMMANDS_H
#define ZET_VANTOR_SERVER_COMMANDS_H

#include <cstddef>

/** Executes a line from the host. */
void zet_server_execute_line(const char *text, size_t length);

#endif
