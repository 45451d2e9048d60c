/** @file
 * Builds short messages in a buffer that has room for them.
 */
#include "zet_vantor_server_text.h"

#include <charconv>
#include <cstddef>
#include <cstring>

char *zet_append_text(char *end, const char *text)
{
    const size_t length = std::strlen(text);
    std::memcpy(end, text, length + 1);
    return end + length;
}

char *zet_append_number(char *end, uint32_t number)
{
    constexpr size_t most_digits = 10;
    char *new_end = std::to_chars(end, end + most_digits, number).ptr;
    *new_end = '\0';
    return new_end;
}
