/** @file
 * Writes JSON to the host piece by piece, and complete documents.
 */
#include "zet_json_writer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

#include <cjson/cJSON.h>

#include "zet_decimal.h"
#include "zet_decimal_text.h"
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

/** Returns the position of the next byte, after the comma before a member or element, unless it is the first
 * one. */
char *begin(zet_json_writer_t *writer)
{
    char *out = reserve(writer, writer->buffer + writer->used, 1);
    if (writer->after_value)
    {
        *out++ = ',';
    }
    writer->after_value = true;
    return out;
}

/** Stores the position of the next byte. */
void commit(zet_json_writer_t *writer, const char *out)
{
    writer->used = static_cast<uint32_t>(out - writer->buffer);
}

/** Writes a character. */
char *put(zet_json_writer_t *writer, char *out, char character)
{
    out = reserve(writer, out, 1);
    *out = character;
    return out + 1;
}

/** Writes a word. */
template <uint32_t size> char *put_word(zet_json_writer_t *writer, char *out, const char (&word)[size])
{
    out = reserve(writer, out, size - 1);
    std::memcpy(out, word, size - 1);
    return out + size - 1;
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

/** Most bytes that copy_plain_bytes copies. */
constexpr uint32_t stride = 4;

/** Copies bytes of a string up to the first that is not plain, at most a stride; returns how many are plain.
 */
inline uint32_t copy_plain_bytes(char *out, const char *text)
{
    if (!copy_plain_byte(out, text))
    {
        return 0;
    }
    if (!copy_plain_byte(out + 1, text + 1))
    {
        return 1;
    }
    if (!copy_plain_byte(out + 2, text + 2))
    {
        return 2;
    }
    return copy_plain_byte(out + 3, text + 3) ? stride : 3;
}

/** Writes the bytes of a string up to the first that is not plain, and advances the text to it. */
char *write_plain_bytes(zet_json_writer_t *writer, char *out, const char **text)
{
    uint32_t count = 0;
    do
    {
        out = reserve(writer, out, stride);
        count = copy_plain_bytes(out, *text);
        out += count;
        *text += count;
    } while (count == stride);
    return out;
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

/** Writes the rest of a string and the closing quotation mark. */
char *put_rest(zet_json_writer_t *writer, char *out, const char *rest)
{
    while (*rest != '\0')
    {
        out = write_other_character(writer, out, &rest);
        out = write_plain_bytes(writer, out, &rest);
    }
    return put(writer, out, '"');
}

/** Writes a string; null is written as the empty string. */
char *put_string(zet_json_writer_t *writer, char *out, const char *text)
{
    const char *rest = text != nullptr ? text : "";
    out = write_plain_bytes(writer, put(writer, out, '"'), &rest);
    return put_rest(writer, out, rest);
}

/** Writes true or false. */
char *put_bool(zet_json_writer_t *writer, char *out, bool value)
{
    return value ? put_word(writer, out, "true") : put_word(writer, out, "false");
}

/** Returns whether a number is finite. Uses integers: many processors have no hardware for `double`. */
bool is_finite(double value)
{
    const auto high = static_cast<uint32_t>(std::bit_cast<uint64_t>(value) >> 32U);
    return (high & 0x7FF00000U) != 0x7FF00000U;
}

/** Writes a number; null when it is not finite. */
char *put_number(zet_json_writer_t *writer, char *out, double value)
{
    if (!is_finite(value))
    {
        return put_word(writer, out, "null");
    }
    out = reserve(writer, out, zet_decimal_text_size);
    return out + zet_decimal_write(value, out);
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

/** A key that can be written without looking at its bytes. */
struct known_key_t
{
    const char *key; /**< no_key if there is none */
    uint32_t length; /**< in bytes, all of which are plain */
};

/** Most bytes of a known key. */
constexpr uint32_t longest_known_key = 8 * stride;

/** Most bytes before a value: a comma, a known key in quotation marks, and a colon. */
constexpr uint32_t most_before_value = 1 + longest_known_key + 3;

/** No key of a document is at this address. */
constexpr char no_key[] = "";

/** A document that is being written. */
struct document_t
{
    zet_json_writer_t *writer;
    uint32_t key_count;   /**< places at which a key was noted */
    known_key_t keys[10]; /**< at each place of an object: objects in an array often have the same keys */
};

/** Copies bytes, four at a time. */
inline void copy(char *out, const char *text, uint32_t length)
{
    constexpr uint32_t word = 4;
    if (length < word)
    {
        for (uint32_t i = 0; i < length; ++i)
        {
            out[i] = text[i];
        }
        return;
    }
    // The last four bytes can begin with some that were already copied.
    const uint32_t last = length - word;
    for (uint32_t i = 0; i < last; i += word)
    {
        std::memcpy(out + i, text + i, word);
    }
    std::memcpy(out + last, text + last, word);
}

/** Writes what follows a key. The room was reserved with that for the key. */
inline char *end_key(char *out)
{
    out[0] = '"';
    out[1] = ':';
    return out + 2;
}

/** Writes the rest of a key that is long or not plain. */
[[gnu::noinline]] char *put_rest_of_key(zet_json_writer_t *writer, char *out, const char *rest)
{
    out = write_plain_bytes(writer, out, &rest);
    return put(writer, put_rest(writer, out, rest), ':');
}

/** Writes a key, and notes it at its place in the object. Room for a known key was reserved. */
[[gnu::noinline]] char *put_new_key(document_t &document, char *out, const char *key, uint32_t place)
{
    const char *const begin = key != nullptr ? key : "";
    *out++ = '"';
    const char *rest = begin;
    uint32_t count = 0;
    do
    {
        count = copy_plain_bytes(out, rest);
        out += count;
        rest += count;
    } while (count == stride && rest != begin + longest_known_key);
    const bool is_plain = *rest == '\0';
    if (place < std::size(document.keys))
    {
        document.keys[place] = {is_plain ? key : no_key, static_cast<uint32_t>(rest - begin)};
        document.key_count = std::max(document.key_count, place + 1);
    }
    return is_plain ? end_key(out) : put_rest_of_key(document.writer, out, rest);
}

/** Writes the key of a member at a place of an object, and the colon. Room for a known key was reserved. */
inline char *put_key(document_t &document, char *out, const char *key, uint32_t place)
{
    if (place >= document.key_count || document.keys[place].key != key)
    {
        return put_new_key(document, out, key, place);
    }
    const uint32_t length = document.keys[place].length;
    *out++ = '"';
    copy(out, key, length);
    return end_key(out + length);
}

[[gnu::noinline]] char *put_container(document_t &document, char *out, const cJSON *item);

/** Writes any value. The caller has checked that it is not nested too deep. */
inline char *put_value(document_t &document, char *out, const cJSON *item)
{
    zet_json_writer_t *const writer = document.writer;
    const auto kind = static_cast<uint32_t>(item->type);
    if ((kind & (cJSON_False | cJSON_True)) != 0U)
    {
        return put_bool(writer, out, (kind & cJSON_True) != 0U);
    }
    if ((kind & cJSON_Number) != 0U)
    {
        return put_number(writer, out, item->valuedouble);
    }
    if ((kind & (cJSON_Object | cJSON_Array)) != 0U)
    {
        return put_container(document, out, item);
    }
    return (kind & cJSON_String) != 0U ? put_string(writer, out, item->valuestring)
                                       : put_word(writer, out, "null");
}

/** Writes an object or an array with its contents. */
char *put_container(document_t &document, char *out, const cJSON *item)
{
    zet_json_writer_t *const writer = document.writer;
    const bool is_object = (item->type & cJSON_Object) != 0;
    out = put(writer, out, is_object ? '{' : '[');
    uint32_t place = 0;
    const cJSON *child = nullptr;
    cJSON_ArrayForEach(child, item)
    {
        out = reserve(writer, out, most_before_value);
        if (place > 0)
        {
            *out++ = ',';
        }
        if (is_object)
        {
            out = put_key(document, out, child->string, place);
        }
        out = put_value(document, out, child);
        ++place;
    }
    return put(writer, out, is_object ? '}' : ']');
}

/** Opens an object or an array. */
void open(zet_json_writer_t *writer, char bracket)
{
    commit(writer, put(writer, begin(writer), bracket));
    writer->after_value = false;
}

/** Closes an object or an array. */
void close(zet_json_writer_t *writer, char bracket)
{
    commit(writer, put(writer, writer->buffer + writer->used, bracket));
    writer->after_value = true;
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
    commit(writer, put(writer, put_string(writer, begin(writer), key), ':'));
    writer->after_value = false;
}

void zet_json_writer_string(zet_json_writer_t *writer, const char *text)
{
    commit(writer, put_string(writer, begin(writer), text));
}

void zet_json_writer_number(zet_json_writer_t *writer, double value)
{
    commit(writer, put_number(writer, begin(writer), value));
}

void zet_json_writer_uint(zet_json_writer_t *writer, uint64_t value)
{
    constexpr uint32_t most_digits = 20;
    char *out = reserve(writer, begin(writer), most_digits);
    commit(writer, zet_decimal_write_uint64(value, out));
}

void zet_json_writer_thousandths(zet_json_writer_t *writer, uint64_t value)
{
    zet_json_writer_uint(writer, value / 1000U);
    auto rest = static_cast<uint32_t>(value % 1000U);
    char *out = reserve(writer, writer->buffer + writer->used, 4);
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
    commit(writer, put_bool(writer, begin(writer), value));
}

void zet_json_writer_null(zet_json_writer_t *writer)
{
    commit(writer, put_word(writer, begin(writer), "null"));
}

void zet_json_writer_finish(zet_json_writer_t *writer)
{
    commit(writer, flush(writer, put(writer, writer->buffer + writer->used, '\n')));
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
    document_t document; // NOLINT(cppcoreguidelines-pro-type-member-init): keys beyond key_count are not read
    document.writer = &writer;
    document.key_count = 0;
    commit(&writer, put_value(document, writer.buffer, json));
    zet_json_writer_finish(&writer);
    return true;
}
