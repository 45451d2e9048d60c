/** @file
 * Messages about what is wrong with data from outside.
 */
#include "common/message.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace zet_simulator
{

bool refuse(const message &message, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    if (std::vsnprintf(message.text, message.size, format, arguments) < 0 && message.size > 0U)
    {
        message.text[0] = '\0';
    }
    va_end(arguments);
    return false;
}

void append(const message &message, const char *text)
{
    size_t length = std::strlen(message.text);
    while (length + 1U < message.size && *text != '\0')
    {
        message.text[length++] = *text++;
    }
    message.text[length] = '\0';
}

} // namespace zet_simulator
