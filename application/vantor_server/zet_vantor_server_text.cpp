/** @file
 * Builds short messages in a buffer that has room for them.
 */
#include "zet_vantor_server_text.h"

#include <cstddef>
#include <cstring>

#include "zet_decimal_text.h"

char *zet_append_text(char *end, const char *text)
{
    const size_t length = std::strlen(text);
    std::memcpy(end, text, length + 1);
    return end + length;
}

char *zet_append_number(char *end, uint32_t number)
{
    char *new_end = zet_decimal_write_uint32(number, end);
    *new_end = '\0';
    return new_end;
}
