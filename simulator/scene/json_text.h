/** @file
 * JSON as text: whether it is JSON, and where its values are.
 *
 * The parser accepts much that is not JSON, and keeps no positions. This scanner accepts only an RFC 8259
 * document within bounds, so that it and the parser see the same values in the same order.
 */
#ifndef ZET_SIMULATOR_JSON_TEXT_H
#define ZET_SIMULATOR_JSON_TEXT_H

#include <cstdint>
#include <string_view>

#include "common/message.h"

namespace zet_simulator
{

/** Most levels of nested objects and arrays. */
constexpr uint32_t json_most_levels = 16;

/** Most values: objects, arrays, strings, numbers and literals. More than a scene can have. */
constexpr uint32_t json_most_values = 200000;

/** Where a value and its key are in a text, in bytes. */
struct json_value_place
{
    size_t key; /**< the place of the value if it has no key */
    size_t value;
};

/** Why a text is not JSON. */
struct json_fault
{
    size_t at;            /**< where, in bytes */
    const char *expected; /**< what must be there */
};

/**
 * Checks that a text is JSON. The escape \\u0000 is not allowed, because a C string cannot contain it.
 *
 * @param fault  receives what is wrong
 */
bool json_text_is_valid(std::string_view text, json_fault &fault);

/** Finds a value of a valid text by its number, from 0, in the order in which values begin in the text. */
json_value_place json_text_find(std::string_view text, uint32_t number);

/** Adds a place in a text to a message, by line and column. */
void append_position(const message &message, std::string_view text, size_t at);

/** What is at a place in a text, for a message. */
struct text_excerpt
{
    char text[40];
};

/** Describes the character at a place in a text. */
text_excerpt text_excerpt_at(std::string_view text, size_t at);

/** Returns a text in quotation marks, with only the beginning of a long one, and without control characters.
 */
text_excerpt text_quoted(std::string_view text);

} // namespace zet_simulator

#endif
