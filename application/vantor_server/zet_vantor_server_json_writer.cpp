/** @file
 * Writing JSON to the host piece by piece, and whole documents by means of that.
 */
#include "zet_vantor_server_json_writer.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include <cjson/cJSON.h>

#include "zet_vantor_server_base_internal.h"
#include "zet_vantor_server_decimal.h"
#include "zet_vantor_server_utf8.h"
#include "zet_vantor_server_utils.h"

namespace
{

/** Sends what waits in the buffer. */
void flush(json_writer_t *writer)
{
    if (writer->used > 0)
    {
        writer->write(writer->buffer, writer->used);
        writer->used = 0;
    }
}

/** Appends text to the buffer, sending the buffer whenever it is full. */
void append(json_writer_t *writer, const char *text, size_t size)
{
    while (size > 0)
    {
        if (writer->used == sizeof writer->buffer)
        {
            flush(writer);
        }
        const size_t room = sizeof writer->buffer - writer->used;
        const size_t piece = size < room ? size : room;
        std::memcpy(writer->buffer + writer->used, text, piece);
        writer->used += static_cast<uint32_t>(piece);
        text += piece;
        size -= piece;
    }
}

/** Appends one character. */
void append(json_writer_t *writer, char character)
{
    append(writer, &character, 1);
}

/** Sets a member or element apart from the one before it. */
void separate(json_writer_t *writer)
{
    if (writer->after_value)
    {
        append(writer, ',');
    }
    writer->after_value = true;
}

/** Opens an object or an array. */
void open(json_writer_t *writer, char bracket)
{
    separate(writer);
    append(writer, bracket);
    writer->after_value = false;
}

/** Closes an object or an array. */
void close(json_writer_t *writer, char bracket)
{
    append(writer, bracket);
    writer->after_value = true;
}

/** Appends a character as \uXXXX. */
void append_escaped(json_writer_t *writer, uint32_t character)
{
    uint8_t bytes[] = {static_cast<uint8_t>(character >> 8U), static_cast<uint8_t>(character & 0xFFU)};
    char escaped[] = "\\u0000";
    convert_uint2hexstr(bytes, sizeof bytes, escaped + 2);
    append(writer, escaped, sizeof escaped - 1);
}

/** Appends one UTF-8 sequence of a string; a length of 0 stands for a byte that begins none. */
void append_character(json_writer_t *writer, const char *text, size_t length)
{
    if (length == 0)
    {
        append_escaped(writer, 0xFFFD);
    }
    else if (*text == '"' || *text == '\\')
    {
        append(writer, '\\');
        append(writer, *text);
    }
    else if (static_cast<unsigned char>(*text) < 0x20U)
    {
        append_escaped(writer, static_cast<unsigned char>(*text));
    }
    else
    {
        append(writer, text, length);
    }
}

/** Appends a string between quotation marks. */
void append_quoted(json_writer_t *writer, const char *text)
{
    append(writer, '"');
    size_t left = text != nullptr ? std::strlen(text) : 0;
    while (left > 0)
    {
        const size_t length = utf8_sequence_length(text, left);
        append_character(writer, text, length);
        const size_t taken = length > 0 ? length : 1;
        text += taken;
        left -= taken;
    }
    append(writer, '"');
}

/** Tells whether a value nests no deeper than a number of levels. Goes no deeper than these itself. */
bool nests_within(const cJSON *item, uint32_t levels)
{
    if (!cJSON_IsObject(item) && !cJSON_IsArray(item))
    {
        return true;
    }
    if (levels == 0)
    {
        return false;
    }
    const cJSON *child = nullptr;
    cJSON_ArrayForEach(child, item)
    {
        if (!nests_within(child, levels - 1))
        {
            return false;
        }
    }
    return true;
}

void write_value(json_writer_t *writer, const cJSON *item);

/** Writes an object or an array with all it holds. */
void write_container(json_writer_t *writer, const cJSON *item)
{
    const bool is_object = cJSON_IsObject(item) != 0;
    open(writer, is_object ? '{' : '[');
    const cJSON *child = nullptr;
    cJSON_ArrayForEach(child, item)
    {
        if (is_object)
        {
            json_writer_key(writer, child->string);
        }
        write_value(writer, child);
    }
    close(writer, is_object ? '}' : ']');
}

/** Writes any value. The caller has seen to it that it does not nest too deep. */
void write_value(json_writer_t *writer, const cJSON *item)
{
    if (cJSON_IsObject(item) || cJSON_IsArray(item))
    {
        write_container(writer, item);
    }
    else if (cJSON_IsString(item))
    {
        json_writer_string(writer, item->valuestring);
    }
    else if (cJSON_IsNumber(item))
    {
        json_writer_number(writer, item->valuedouble);
    }
    else if (cJSON_IsBool(item))
    {
        json_writer_bool(writer, cJSON_IsTrue(item) != 0);
    }
    else
    {
        json_writer_null(writer);
    }
}

} // namespace

void json_writer_init(json_writer_t *writer, write_data_function_t *write)
{
    writer->write = write;
    writer->used = 0;
    writer->after_value = false;
}

void json_writer_begin_object(json_writer_t *writer)
{
    open(writer, '{');
}

void json_writer_end_object(json_writer_t *writer)
{
    close(writer, '}');
}

void json_writer_begin_array(json_writer_t *writer)
{
    open(writer, '[');
}

void json_writer_end_array(json_writer_t *writer)
{
    close(writer, ']');
}

void json_writer_key(json_writer_t *writer, const char *key)
{
    separate(writer);
    append_quoted(writer, key);
    append(writer, ':');
    writer->after_value = false;
}

void json_writer_string(json_writer_t *writer, const char *text)
{
    separate(writer);
    append_quoted(writer, text);
}

void json_writer_number(json_writer_t *writer, double value)
{
    if (!std::isfinite(value))
    {
        json_writer_null(writer);
        return;
    }
    separate(writer);
    char text[decimal_text_size];
    append(writer, text, decimal_write(value, text));
}

void json_writer_uint(json_writer_t *writer, uint64_t value)
{
    separate(writer);
    char text[20]; // the digits of the largest
    const char *end = std::to_chars(text, text + sizeof text, value).ptr;
    append(writer, text, static_cast<size_t>(end - text));
}

void json_writer_bool(json_writer_t *writer, bool value)
{
    separate(writer);
    append(writer, value ? "true" : "false", value ? 4 : 5);
}

void json_writer_null(json_writer_t *writer)
{
    separate(writer);
    append(writer, "null", 4);
}

void json_writer_finish(json_writer_t *writer)
{
    append(writer, '\n');
    flush(writer);
}

bool zet_vantor_server_write_json(write_data_function_t *write, cJSON *json)
{
    if (write == nullptr || json == nullptr || !nests_within(json, json_writer_max_depth))
    {
        return false;
    }
    json_writer_t writer;
    json_writer_init(&writer, write);
    write_value(&writer, json);
    json_writer_finish(&writer);
    return true;
}
