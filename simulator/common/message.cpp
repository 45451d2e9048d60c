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
    if (message.size > 0U)
    {
        message.text[0] = '\0';
    }
    va_list arguments;
    va_start(arguments, format);
    append_arguments(message, format, arguments);
    va_end(arguments);
    return false;
}

void append(const message &message, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    append_arguments(message, format, arguments);
    va_end(arguments);
}

void append_arguments(const message &message, const char *format, va_list arguments)
{
    if (message.size > 0U)
    {
        const size_t length = std::strlen(message.text);
        static_cast<void>(std::vsnprintf(message.text + length, message.size - length, format, arguments));
    }
}

} // namespace zet_simulator
