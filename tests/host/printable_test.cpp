/** @file
 * Tests of making text safe for a terminal.
 */
#include "recording/printable.h"

#include <sstream>

#include <gmock/gmock.h>

#include "commands/common_options.h"

namespace vantor
{
namespace
{

TEST(printable, replaces_what_controls_a_terminal)
{
    const std::pair<std::string, const char *> texts[] = {
        {"", ""},
        {"a\tb\"\\", "a\tb\"\\"},
        {std::string("\0\n\r\x1b\x1f\x7f", 6), "??????"},
        {"\xc2\x80[\xc2\x9b\xc2\x9f", "?[??"},
        {"\u061c\u200e\u200f\u2028\u2029\u202a\u202e\u2066\u2069", "?????????"},
        {"a\u202eb", "a?b"},
    };
    for (const auto &[text, expected] : texts)
    {
        EXPECT_EQ(printable(text), expected);
    }
}

TEST(printable, keeps_all_other_characters)
{
    for (const char *text : {" ~", "\u00a0\u00bf\u00c0\u00db\u00df", "\u061b\u061d",
                             "\u200d\u2010\u2027\u202f", "\u2065\u206a", "\U0001f600", "\u1b9b"})
    {
        EXPECT_EQ(printable(text), text);
    }
}

TEST(printable, replaces_control_bytes_that_are_not_utf_8)
{
    EXPECT_EQ(printable("\x9b"
                        "31m"),
              "?31m");
    EXPECT_EQ(printable("\xc3\x1b"), "\xc3?");
    EXPECT_EQ(printable("\xe2\x80"), "\xe2?");
    EXPECT_EQ(printable("\xf8\x9b\x80"), "\xf8??");
    // An escape in two bytes.
    EXPECT_EQ(printable("\xc0\x9b"), "?");
    EXPECT_EQ(printable("caf\xe9"), "caf\xe9");
}

TEST(printable, escapes_controls_in_json)
{
    std::ostringstream out;
    const nlohmann::ordered_json document = {{"a", "\x1b \x7f \u009b \u202e \u2069 \u00e9 \xff"}};
    print_json(out, document);
    EXPECT_EQ(out.str(), "{\n  \"a\": \"\\u001b \\u007f \\u009b \\u202e \\u2069 \u00e9 \ufffd\"\n}\n");
    EXPECT_EQ(nlohmann::json::parse(out.str())["a"], "\x1b \x7f \u009b \u202e \u2069 \u00e9 \ufffd");
}

} // namespace
} // namespace vantor
