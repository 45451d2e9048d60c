/** @file
 * Messages about what is wrong with data from outside.
 */
#ifndef ZET_SIMULATOR_MESSAGE_H
#define ZET_SIMULATOR_MESSAGE_H

#include <cstdarg>
#include <cstddef>

#include "zet_integration_log.h"

namespace zet_simulator
{

/** Buffer for a message; a message that does not fit is cut. */
struct message
{
    char *text;
    size_t size;
};

/**
 * Writes a message.
 *
 * @param format  printf format, followed by its arguments
 * @return false, so that the check that failed can return it
 */
bool refuse(const message &message, const char *format, ...) ZET_PRINTF_FORMAT(2, 3);

/**
 * Adds text to the end of a message.
 *
 * @param format  printf format, followed by its arguments
 */
void append(const message &message, const char *format, ...) ZET_PRINTF_FORMAT(2, 3);

/** Adds text to the end of a message; @p format  printf format */
void append_arguments(const message &message, const char *format, va_list arguments) ZET_PRINTF_FORMAT(2, 0);

} // namespace zet_simulator

#endif
