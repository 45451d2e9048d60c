/** @file
 * Recognises well-formed UTF-8.
 */
#ifndef ZET_UTF8_H
#define ZET_UTF8_H

#include <cstddef>

/** Length of the longest sequence, in bytes. */
constexpr size_t zet_utf8_max_length = 4;

/**
 * Measures the UTF-8 sequence at the start of a text.
 *
 * @param text  the text; need not be zero-terminated
 * @param size  its size in bytes
 * @return the length of the sequence, 1 to 4; 0 when the text is empty or starts with anything else:
 *         overlong forms, surrogates and code points beyond U+10FFFF are not well formed
 */
size_t zet_utf8_sequence_length(const char *text, size_t size);

#endif
