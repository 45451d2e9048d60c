/** @file
 * Checks a line from the host before the JSON parser sees it.
 *
 * The parser accepts much that is not JSON, recurses with the nesting of the text and allocates for every
 * value. The scanner accepts only an RFC 8259 document within bounds, and needs neither recursion nor memory.
 */
#ifndef ZET_JSON_SCANNER_H
#define ZET_JSON_SCANNER_H

#include <cstddef>
#include <cstdint>

/** Most levels of nested objects and arrays; the outermost is level 1. */
constexpr uint32_t zet_json_scan_max_depth = 16;

/** Result of a scan: the first problem in the text, or none. */
enum zet_json_scan_result_t : uint8_t
{
    ZET_JSON_SCAN_OK,              /**< one JSON document within the bounds */
    ZET_JSON_SCAN_NOT_JSON,        /**< not a JSON document */
    ZET_JSON_SCAN_TRAILING_TEXT,   /**< text other than white space after the JSON document */
    ZET_JSON_SCAN_TOO_DEEP,        /**< nested deeper than zet_json_scan_max_depth */
    ZET_JSON_SCAN_TOO_MANY_VALUES, /**< contains more values than allowed */
};

/**
 * Scans a text.
 *
 * It also rejects what the grammar allows but a C string cannot contain, the escape \\u0000, and what is not
 * a character: ill-formed UTF-8 and escaped surrogates without their other half.
 *
 * @param text        the text; need not be zero-terminated
 * @param size        its size in bytes
 * @param max_values  most values (objects, arrays, strings, numbers and literals; keys do not count)
 */
zet_json_scan_result_t zet_json_scan(const char *text, size_t size, uint32_t max_values);

#endif
