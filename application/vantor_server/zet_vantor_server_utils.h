/** @file
 * Conversion between bytes and hexadecimal text.
 */
#ifndef ZET_VANTOR_SERVER_UTILS_H
#define ZET_VANTOR_SERVER_UTILS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Decodes hexadecimal text, two digits per byte, the high digit first; letters in upper or lower case.
 *
 * @param str   zero-terminated text of exactly 2 × @p size digits
 * @param out   receives @p size bytes; on failure the bytes before the first invalid digit may be written
 * @param size  number of bytes
 * @return false when the text has another length or contains anything except digits
 */
bool convert_hexstr2uint(char *str, uint8_t *out, size_t size);

/**
 * Encodes bytes as hexadecimal text, two lower-case digits per byte, the high digit first.
 *
 * @param data  the bytes
 * @param size  their number
 * @param out   receives 2 × @p size characters; no terminating zero is written
 */
void convert_uint2hexstr(uint8_t *data, size_t size, char *out);

#ifdef __cplusplus
}
#endif

#endif
