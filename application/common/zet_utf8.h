/** @file
 * Telling well-formed UTF-8 from other bytes.
 */
#ifndef ZET_UTF8_H
#define ZET_UTF8_H

#include <cstddef>

/** Bytes of the longest sequence. */
constexpr size_t zet_utf8_max_length = 4;

/**
 * Measures the UTF-8 sequence at the start of a text.
 *
 * @param text  the text; need not be closed by a zero
 * @param size  its size in bytes
 * @return the length of the sequence, 1 to 4; 0 when the text is empty or starts with anything else:
 *         overlong forms, surrogates and code points beyond U+10FFFF are not well formed
 */
size_t zet_utf8_sequence_length(const char *text, size_t size);

#endif
