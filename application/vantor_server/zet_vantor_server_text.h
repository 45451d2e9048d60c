/** @file
 * Builds short messages in a buffer that has room for them.
 */
#ifndef ZET_VANTOR_SERVER_TEXT_H
#define ZET_VANTOR_SERVER_TEXT_H

#include <cstdint>

/** Appends text, and a zero behind it. Returns the new end, where the zero is. */
char *zet_append_text(char *end, const char *text);

/** Appends a number, at most 10 digits, and a zero behind it. Returns the new end, where the zero is. */
char *zet_append_number(char *end, uint32_t number);

#endif
