/** @file
 * Formatted text, in less code than the C library needs.
 */
#ifndef VANTOR_FORMAT_H
#define VANTOR_FORMAT_H

#include <cstdarg>
#include <cstddef>

namespace cortex_m4
{

/**
 * Does what std::vsnprintf does, except that a floating-point number has the shortest text that reads back as
 * the same number, whatever its conversion and precision, and that the lengths `ll`, `j` and `L` are unknown.
 * An unknown conversion ends the text. A text that is null is written as `(null)`.
 *
 * @param text  may be null if the size is 0
 * @return the number of characters, without the terminating zero, if the size were sufficient
 */
[[gnu::format(printf, 3, 0)]] int format(char *text, size_t size, const char *format, va_list arguments);

} // namespace cortex_m4

#endif
