/** @file
 * Writes JSON to the host piece by piece, and complete documents.
 */
#include "zet_json_writer.h"

#include <bit>
#include <charconv>
#include <cstring>

#include <cjson/cJSON.h>

#include "zet_decimal.h"
#include "zet_utf8.h"
#include "zet_vantor_server_base_internal.h"
#include "zet_vantor_server_utils.h"

namespace
{

// The functions that write text receive the position of the next byte and return the position after their
// text, so that it stays in a register. commit stores it in the writer at the end.

/** Sends the buffer up to a position; returns the start of the buffer. */
[[gnu::noinline]] char *flush(zet_json_writer_t *writer, const char *out)
{
    writer->write(writer->buffer, static_cast<uint32_t>(out - writer->buffer));
    return writer->buffer;
}

/** Makes room for a number of bytes, at most the buffer's size; returns where they go. */
char *reserve(zet_json_writer_t *writer, char *out, uint32_t size)
{
    const auto room = static_cast<uint32_t>(writer->buffer + sizeof writer->buffer - out);
    return room < size ? flush(writer, out) : out;
}

/** Returns the position of the next byte, with room for a number of bytes. */
char *begin(zet_json_writer_t *writer, uint32_t size)
{
    return reserve(writer, writer->buffer + writer->used, size);
}

/** Stores the position of the next byte. */
void commit(zet_json_writer_t *writer, const char *out)
{
    writer->used = static_cast<uint32_t>(out - writer->buffer);
}

/** Writes the comma before a member or element, unless it is the first one. */
char *separate(zet_json_writer_t *writer, char *out)
{
    if (writer->after_value)
    {
        *out++ = ',';
    }
    writer->after_value = true;
    return out;
}

/** Appends a word as a value. */
template <uint32_t size> void append_word(zet_json_writer_t *writer, const char (&word)[size])
{
    char *out = separate(writer, begin(writer, size));
    std::memcpy(out, word, size - 1);
    commit(writer, out + size - 1);
}

/** Opens an object or an array. */
void open(zet_json_writer_t *writer, char bracket)
{
    char *out = separate(writer, begin(writer, 2));
    *out++ = bracket;
    commit(writer, out);
    writer->after_value = false;
}

/** Closes an object or an array. */
void close(zet_json_writer_t *writer, char bracket)
{
    char *out = begin(writer, 1);
    *out++ = bracket;
    commit(writer, out);
    writer->after_value = true;
}

/** Writes a character as \uXXXX. */
char *write_escaped(zet_json_writer_t *writer, char *out, uint32_t character)
{
    uint8_t bytes[] = {static_cast<uint8_t>(character >> 8U), static_cast<uint8_t>(character & 0xFFU)};
    char escaped[] = "\\u0000";
    convert_uint2hexstr(bytes, sizeof bytes, escaped + 2);
    out = reserve(writer, out, sizeof escaped - 1);
    std::memcpy(out, escaped, sizeof escaped - 1);
    return out + sizeof escaped - 1;
}

/** The bits of an item's type that give its kind; the others say who owns its parts. */
constexpr int type_bits = 0xFF;

/** Whether each byte is written to a JSON string unchanged and is a character by itself. */
struct plain_bytes_t
{
    bool is_plain[256];
};

constexpr plain_bytes_t make_plain_bytes()
{
    plain_bytes_t bytes = {};
    for (uint32_t byte = 0x20; byte < 0x80; ++byte)
    {
        bytes.is_plain[byte] = byte != '"' && byte != '\\';
    }
    return bytes;
}

constexpr plain_bytes_t plain_bytes = make_plain_bytes();

/** Copies a byte of a string; returns whether it is plain. */
inline bool copy_plain_byte(char *out, const char *text)
{
    *out = *text;
    return plain_bytes.is_plain[static_cast<unsigned char>(*text)];
}

/** Writes the bytes of a string up to the first that is not plain, and advances the text to it. */
char *write_plain_bytes(zet_json_writer_t *writer, char *out, const char **text)
{
    // Bytes between two checks for room.
    constexpr uint32_t stride = 4;
    const char *rest = *text;
    // Plain bytes at the end, less than a stride.
    uint32_t count = 0;
    for (;;)
    {
        out = reserve(writer, out, stride);
        if (!copy_plain_byte(out, rest))
        {
            break;
        }
        if (!copy_plain_byte(out + 1, rest + 1))
        {
            count = 1;
            break;
        }
        if (!copy_plain_byte(out + 2, rest + 2))
        {
            count = 2;
            break;
        }
        if (!copy_plain_byte(out + 3, rest + 3))
        {
            count = 3;
            break;
        }
        out += stride;
        rest += stride;
    }
    *text = rest + count;
    return out + count;
}

/** Writes a character of a string whose first byte is not plain, and advances the text. */
[[gnu::noinline]] char *write_other_character(zet_json_writer_t *writer, char *out, const char **text)
{
    const char *const character = *text;
    const auto byte = static_cast<unsigned char>(*character);
    // The terminating zero ends every sequence, so nothing after it is read.
    const size_t length = zet_utf8_sequence_length(character, zet_utf8_max_length);
    *text += length > 0 ? length : 1;
    if (byte < 0x20U || length == 0)
    {
        return write_escaped(writer, out, length > 0 ? byte : 0xFFFDU);
    }
    out = reserve(writer, out, 1 + zet_utf8_max_length);
    if (length == 1)
    {
        *out++ = '\\';
    }
    std::memcpy(out, character, length);
    return out + length;
}

/** Writes a string with the opening quotation mark, without the closing one. */
char *write_open_string(zet_json_writer_t *writer, const char *text)
{
    char *out = separate(writer, begin(writer, 2));
    *out++ = '"';
    const char *rest = text != nullptr ? text : "";
    for (;;)
    {
        out = write_plain_bytes(writer, out, &rest);
        if (*rest == '\0')
        {
            return out;
        }
        out = write_other_character(writer, out, &rest);
    }
}

/** Returns whether a value is an object or an array. */
bool is_container(const cJSON *item)
{
    return (item->type & (cJSON_Object | cJSON_Array)) != 0;
}

/** Returns whether a container has at most a number of nested levels. Recurses at most that deep. */
bool nests_within(const cJSON *container, uint32_t levels)
{
    if (levels == 0)
    {
        return false;
    }
    const cJSON *child = nullptr;
    cJSON_ArrayForEach(child, container)
    {
        if (is_container(child) && !nests_within(child, levels - 1))
        {
            return false;
        }
    }
    return true;
}

/** Returns whether a number is finite. Uses integers: many processors have no hardware for `double`. */
bool is_finite(double value)
{
    const auto high = static_cast<uint32_t>(std::bit_cast<uint64_t>(value) >> 32U);
    return (high & 0x7FF00000U) != 0x7FF00000U;
}

void write_value(zet_json_writer_t *writer, const cJSON *item);

/** Writes an object or an array with its contents. */
void write_container(zet_json_writer_t *writer, const cJSON *item)
{
    const bool is_object = (item->type & cJSON_Object) != 0;
    open(writer, is_object ? '{' : '[');
    const cJSON *child = nullptr;
    cJSON_ArrayForEach(child, item)
    {
        if (is_object)
        {
            zet_json_writer_key(writer, child->string);
        }
        write_value(writer, child);
    }
    close(writer, is_object ? '}' : ']');
}

/** Writes any value. The caller has checked that it is not nested too deep. */
void write_value(zet_json_writer_t *writer, const cJSON *item)
{
    switch (item->type & type_bits)
    {
    case cJSON_Object:
    case cJSON_Array:
        write_container(writer, item);
        break;
    case cJSON_String:
        zet_json_writer_string(writer, item->valuestring);
        break;
    case cJSON_Number:
        zet_json_writer_number(writer, item->valuedouble);
        break;
    case cJSON_True:
        zet_json_writer_bool(writer, true);
        break;
    case cJSON_False:
        zet_json_writer_bool(writer, false);
        break;
    default:
        zet_json_writer_null(writer);
        break;
    }
}

} // namespace

void zet_json_writer_init(zet_json_writer_t *writer, write_data_function_t *write)
{
    writer->write = write;
    writer->used = 0;
    writer->after_value = false;
}

void zet_json_writer_begin_object(zet_json_writer_t *writer)
{
    open(writer, '{');
}

void zet_json_writer_end_object(zet_json_writer_t *writer)
{
    close(writer, '}');
}

void zet_json_writer_begin_array(zet_json_writer_t *writer)
{
    open(writer, '[');
}

void zet_json_writer_end_array(zet_json_writer_t *writer)
{
    close(writer, ']');
}

void zet_json_writer_key(zet_json_writer_t *writer, const char *key)
{
    char *out = reserve(writer, write_open_string(writer, key), 2);
    *out++ = '"';
    *out++ = ':';
    commit(writer, out);
    writer->after_value = false;
}

void zet_json_writer_string(zet_json_writer_t *writer, const char *text)
{
    char *out = reserve(writer, write_open_string(writer, text), 1);
    *out++ = '"';
    commit(writer, out);
}

void zet_json_writer_number(zet_json_writer_t *writer, double value)
{
    if (!is_finite(value))
    {
        zet_json_writer_null(writer);
        return;
    }
    char *out = separate(writer, begin(writer, 1 + zet_decimal_text_size));
    commit(writer, out + zet_decimal_write(value, out));
}

void zet_json_writer_uint(zet_json_writer_t *writer, uint64_t value)
{
    constexpr uint32_t most_digits = 20;
    char *out = separate(writer, begin(writer, 1 + most_digits));
    commit(writer, std::to_chars(out, out + most_digits, value).ptr);
}

void zet_json_writer_thousandths(zet_json_writer_t *writer, uint64_t value)
{
    zet_json_writer_uint(writer, value / 1000U);
    auto rest = static_cast<uint32_t>(value % 1000U);
    char *out = begin(writer, 4);
    if (rest > 0)
    {
        *out++ = '.';
    }
    for (; rest > 0; rest = rest % 100U * 10U)
    {
        *out++ = static_cast<char>('0' + rest / 100U);
    }
    commit(writer, out);
}

void zet_json_writer_bool(zet_json_writer_t *writer, bool value)
{
    if (value)
    {
        append_word(writer, "true");
    }
    else
    {
        append_word(writer, "false");
    }
}

void zet_json_writer_null(zet_json_writer_t *writer)
{
    append_word(writer, "null");
}

void zet_json_writer_finish(zet_json_writer_t *writer)
{
    char *out = begin(writer, 1);
    *out++ = '\n';
    commit(writer, flush(writer, out));
}

bool zet_vantor_server_write_json(write_data_function_t *write, cJSON *json)
{
    if (write == nullptr || json == nullptr ||
        (is_container(json) && !nests_within(json, zet_json_writer_max_depth)))
    {
        return false;
    }
    zet_json_writer_t writer;
    zet_json_writer_init(&writer, write);
    write_value(&writer, json);
    zet_json_writer_finish(&writer);
    return true;
}
