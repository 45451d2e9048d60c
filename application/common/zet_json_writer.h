/** @file
 * Writes JSON to the host piece by piece, with a small buffer and no other memory.
 *
 * Because nothing is allocated, an error can be reported to the host when memory is exhausted.
 *
 * @code
 * zet_json_writer_t writer;
 * zet_json_writer_init(&writer, write);
 * zet_json_writer_begin_object(&writer);
 * zet_json_writer_key(&writer, "status");
 * zet_json_writer_string(&writer, "ok");
 * zet_json_writer_end_object(&writer);
 * zet_json_writer_finish(&writer);
 * @endcode
 */
#ifndef ZET_JSON_WRITER_H
#define ZET_JSON_WRITER_H

#include <cstddef>
#include <cstdint>

#include "zet_vantor_server_base.h"

/** Most levels of nesting in a document that zet_vantor_server_write_json sends. */
constexpr uint32_t zet_json_writer_max_depth = 16;

/** A document being written. The fields are private to the writer. */
struct zet_json_writer_t
{
    write_data_function_t *write; /**< sends the text */
    uint32_t used;                /**< bytes waiting in the buffer */
    bool after_value;             /**< a comma is due before the next member or element */
    char buffer[256];             /**< text that has not been sent yet */
};

/** Begins a document; nothing is sent yet. */
void zet_json_writer_init(zet_json_writer_t *writer, write_data_function_t *write);

/** Opens an object. */
void zet_json_writer_begin_object(zet_json_writer_t *writer);

/** Closes an object. */
void zet_json_writer_end_object(zet_json_writer_t *writer);

/** Opens an array. */
void zet_json_writer_begin_array(zet_json_writer_t *writer);

/** Closes an array. */
void zet_json_writer_end_array(zet_json_writer_t *writer);

/** Writes the key of a member; its value must follow. Null is written as the empty key. */
void zet_json_writer_key(zet_json_writer_t *writer, const char *key);

/**
 * Writes a string.
 *
 * @param text  the text; null is written as the empty string. Bytes that are not UTF-8 become U+FFFD.
 */
void zet_json_writer_string(zet_json_writer_t *writer, const char *text);

/**
 * Writes a number: an integer up to 2^53 without an exponent, one that is exactly a `float` as the shortest
 * text that reads back as this `float`, any other as the shortest text that reads back as this `double`; null
 * when it is not finite.
 */
void zet_json_writer_number(zet_json_writer_t *writer, double value);

/** Writes an unsigned integer. */
void zet_json_writer_uint(zet_json_writer_t *writer, uint64_t value);

/** Writes a number given in thousandths: exactly, with no more digits than needed. */
void zet_json_writer_thousandths(zet_json_writer_t *writer, uint64_t value);

/** Writes true or false. */
void zet_json_writer_bool(zet_json_writer_t *writer, bool value);

/** Writes null. */
void zet_json_writer_null(zet_json_writer_t *writer);

/** Ends the document with a line feed and sends what has not been sent yet. */
void zet_json_writer_finish(zet_json_writer_t *writer);

#endif
