/** @file
 * Judging a line from the host before the JSON parser sees it.
 *
 * The parser takes much that is not JSON, recurses with the nesting of the text and allocates for every
 * value. The scanner lets nothing pass but a document by RFC 8259 within bounds, and needs neither recursion
 * nor memory for that.
 */
#ifndef ZET_JSON_SCANNER_H
#define ZET_JSON_SCANNER_H

#include <cstddef>
#include <cstdint>

/** How deep objects and arrays may nest; the outermost counts as one. */
constexpr uint32_t zet_json_scan_max_depth = 16;

/** What a text is found to be; when several apply, what shows first in the text. */
enum zet_json_scan_result_t : uint8_t
{
    ZET_JSON_SCAN_OK,              /**< one JSON document within the bounds */
    ZET_JSON_SCAN_NOT_JSON,        /**< no JSON document */
    ZET_JSON_SCAN_TRAILING_TEXT,   /**< a JSON document, followed by more than white space */
    ZET_JSON_SCAN_TOO_DEEP,        /**< nests deeper than zet_json_scan_max_depth */
    ZET_JSON_SCAN_TOO_MANY_VALUES, /**< holds more values than allowed */
};

/**
 * Judges a text.
 *
 * Beyond the grammar it refuses what C strings cannot hold, the escape \\u0000, and what stands for no
 * character: ill-formed UTF-8 and escaped surrogates that are no pair.
 *
 * @param text        the text; need not be closed by a zero
 * @param size        its size in bytes
 * @param max_values  most values (objects, arrays, strings, numbers and literals; keys do not count)
 */
zet_json_scan_result_t zet_json_scan(const char *text, size_t size, uint32_t max_values);

#endif
