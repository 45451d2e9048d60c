/** @file
 * The hexadecimal converters.
 */
#include "zet_vantor_server_utils.h"

#include <array>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace
{

bool decode(std::string text, std::vector<uint8_t> &bytes)
{
    return convert_hexstr2uint(text.data(), bytes.data(), bytes.size());
}

TEST(hexadecimal, encodes_in_lower_case_without_a_terminating_zero)
{
    std::array<uint8_t, 4> data = {0x00, 0x9A, 0xFF, 0x10};
    char text[10];
    std::memset(text, '#', sizeof text);
    convert_uint2hexstr(data.data(), data.size(), text);
    EXPECT_EQ(std::string(text, sizeof text), "009aff10##");
}

TEST(hexadecimal, encodes_nothing)
{
    uint8_t data = 1;
    char text = '#';
    convert_uint2hexstr(&data, 0, &text);
    EXPECT_EQ(text, '#');
}

TEST(hexadecimal, decodes_both_cases)
{
    std::vector<uint8_t> bytes(3);
    EXPECT_TRUE(decode("0aBCd9", bytes));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{0x0A, 0xBC, 0xD9}));
}

TEST(hexadecimal, decodes_every_byte_that_it_encodes)
{
    std::vector<uint8_t> data(256);
    for (size_t i = 0; i < data.size(); ++i)
    {
        data[i] = static_cast<uint8_t>(i);
    }
    std::string text(512, '\0');
    convert_uint2hexstr(data.data(), data.size(), text.data());
    std::vector<uint8_t> bytes(256);
    EXPECT_TRUE(decode(text, bytes));
    EXPECT_EQ(bytes, data);
}

TEST(hexadecimal, refuses_text_of_the_wrong_length)
{
    std::vector<uint8_t> bytes(2);
    for (const char *text : {"", "0", "00", "000", "00000", "000000"})
    {
        EXPECT_FALSE(decode(text, bytes)) << text;
    }
    EXPECT_TRUE(decode("0000", bytes));
    std::vector<uint8_t> none;
    EXPECT_TRUE(decode("", none));
    EXPECT_FALSE(decode("00", none));
}

TEST(hexadecimal, refuses_every_invalid_character_in_every_place)
{
    std::vector<uint8_t> bytes(2);
    for (int character = 0; character < 256; ++character)
    {
        for (size_t place = 0; place < 4; ++place)
        {
            std::string text = "1234";
            text[place] = static_cast<char>(character);
            EXPECT_EQ(decode(text, bytes), std::isxdigit(character) != 0) << character << " at " << place;
        }
    }
}

} // namespace
