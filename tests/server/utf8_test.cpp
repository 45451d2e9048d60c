/** @file
 * Detecting well-formed UTF-8: every code point, and invalid sequences.
 */
#include "zet_utf8.h"

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace
{

/** Encodes a number like UTF-8 in this number of bytes, even if that is not well formed. */
std::string encode(uint32_t code, size_t length)
{
    if (length == 1)
    {
        return {static_cast<char>(code)};
    }
    std::string text(length, '\0');
    for (size_t i = length; i-- > 1;)
    {
        text[i] = static_cast<char>(0x80U | (code & 0x3FU));
        code >>= 6U;
    }
    const uint32_t marks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    text[0] = static_cast<char>(marks[length] | code);
    return text;
}

/** The length of the shortest encoding of a code point. */
size_t shortest(uint32_t code)
{
    return code < 0x80U ? 1 : code < 0x800U ? 2 : code < 0x10000U ? 3 : 4;
}

TEST(utf8, accepts_every_code_point_in_its_shortest_form_only)
{
    for (uint32_t code = 0; code < 0x120000U; ++code)
    {
        const size_t needed = shortest(code);
        const bool valid = code <= 0x10FFFFU && (code < 0xD800U || code > 0xDFFFU);
        for (size_t length = needed; length <= 4; ++length)
        {
            const std::string text = encode(code, length) + "a";
            const size_t expected = valid && length == needed ? needed : 0;
            ASSERT_EQ(zet_utf8_sequence_length(text.data(), text.size()), expected)
                << code << " in " << length;
        }
    }
}

TEST(utf8, refuses_truncated_and_broken_sequences)
{
    for (const uint32_t code : {0xE9U, 0x20ACU, 0x1F600U})
    {
        const std::string complete = encode(code, shortest(code));
        for (size_t length = 0; length < complete.size(); ++length)
        {
            EXPECT_EQ(zet_utf8_sequence_length(complete.data(), length), 0U);
        }
        for (size_t place = 1; place < complete.size(); ++place)
        {
            std::string broken = complete;
            broken[place] = 'a';
            EXPECT_EQ(zet_utf8_sequence_length(broken.data(), broken.size()), 0U);
            broken[place] = static_cast<char>(0xC3);
            EXPECT_EQ(zet_utf8_sequence_length(broken.data(), broken.size()), 0U);
        }
    }
}

TEST(utf8, refuses_bytes_that_cannot_start_a_sequence)
{
    for (const uint32_t first : {0x80U, 0xBFU, 0xC0U, 0xC1U, 0xF5U, 0xF8U, 0xFCU, 0xFEU, 0xFFU})
    {
        const std::string text = {static_cast<char>(first), '\x80', '\x80', '\x80'};
        EXPECT_EQ(zet_utf8_sequence_length(text.data(), text.size()), 0U) << first;
    }
}

} // namespace
