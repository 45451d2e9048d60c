/** @file
 * Tests of printing text safely.
 */
#include <gtest/gtest.h>

#include "console.h"

namespace
{

using namespace std::string_literals;

TEST(console, replaces_control_characters_only)
{
    EXPECT_EQ(printable("Ünïcode \u20AC \U0001F600 text"), "Ünïcode \u20AC \U0001F600 text");
    EXPECT_EQ(printable("a\x1B[31mb\x7F\n\t\0c"s), "a?[31mb????c");
    EXPECT_EQ(printable("\u0080\u009F\u00A0"), "??\u00A0");
    for (const char *const control :
         {"\u061C", "\u200E", "\u200F", "\u2028", "\u202A", "\u202E", "\u2066", "\u2069"})
    {
        EXPECT_EQ(printable(control), "?") << control;
    }
    for (const char *const text :
         {"\u061B", "\u061D", "\u200D", "\u2010", "\u2027", "\u202F", "\u2065", "\u206A"})
    {
        EXPECT_EQ(printable(text), text);
    }
}

TEST(console, replaces_bytes_that_are_not_utf_8)
{
    EXPECT_EQ(printable("\x9B\x31\xC3"), "?1?");
    EXPECT_EQ(printable("\xE2\x80"), "??");
}

} // namespace
