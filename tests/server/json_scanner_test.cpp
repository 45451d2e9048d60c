/** @file
 * The JSON scanner: valid and invalid documents, and every limit.
 */
#include "zet_json_scanner.h"

#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <string_view>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace
{

using namespace std::string_view_literals;

constexpr uint32_t plenty = 100000;

/** Scans a copy without a terminating zero, so that a sanitizer detects every read beyond the end. */
zet_json_scan_result_t scan(std::string_view text, uint32_t max_values = plenty)
{
    const std::unique_ptr<char[]> copy(new char[text.size()]);
    text.copy(copy.get(), text.size());
    return zet_json_scan(copy.get(), text.size(), max_values);
}

std::string repeated(std::string_view text, size_t times)
{
    std::string result;
    while (times-- > 0)
    {
        result += text;
    }
    return result;
}

constexpr std::string_view accepted[] = {
    // objects and arrays
    "{}",
    "[]",
    " { } ",
    " [ ] ",
    "\t[\r\n1 , 2\t]\n",
    R"({"a":1})",
    R"({"a":1,"b":[],"c":{}})",
    R"({"":0})",
    R"({"a":1,"a":2})",
    R"([[],[[]],{"x":[{}]}])",
    R"({"a" :1})",
    R"({"a": 1})",
    R"({"a"   :   1})",
    "{\"a\"\t:1}",
    "{\"a\"\r:1}",
    "{\"a\"\n:1}",
    "{\"a\" \t\r\n : \t\r\n 1,\"b\"\n\r\t :[]}",
    "[null, true, false]",
    R"([1,"a",null,{}])",
    // values alone
    "true",
    "false",
    "null",
    "0",
    "\"\"",
    "\"a\"",
    " 1 ",
    "\"\"\n",
    // numbers
    "[0]",
    "[-0]",
    "[10]",
    "[-1]",
    "[123456789]",
    "[0.5]",
    "[-0.5]",
    "[1.0]",
    "[1.25e3]",
    "[1e1]",
    "[1E1]",
    "[1e+1]",
    "[1E-1]",
    "[0e0]",
    "[0E+1]",
    "[1e00]",
    "[1.5E+09]",
    "[1e400]",
    "[-1e400]",
    "[1e-400]",
    "[100000000000000000000000000000000000000000000000000000000000000000000000000000000000000]",
    "[-0.000000000000000000000000000000000000000000000000000000000000000000000000000000000001]",
    // strings
    R"(["\"\\\/\b\f\n\r\t"])",
    R"(["\u0041\u00e9\u20AC\uFFFF"])",
    R"(["\uD83D\uDE00"])",
    R"(["\ud800\udfff"])",
    R"(["\uDBFF\uDC00"])",
    R"(["\u0001"])",
    "[\"\x7f\"]",
    "[\"\u00e9\u20ac\U0001F600\"]",
    "[\"\xf4\x8f\xbf\xbf\"]",
    "[\"\xee\x80\x80\"]",
    R"({"\u0061":1})",
    R"(["a/b"])",
    R"(["\\u0000"])",
};

constexpr std::string_view refused[] = {
    // empty or incomplete
    ""sv,
    " "sv,
    "\t"sv,
    "{"sv,
    "["sv,
    "{\"a\""sv,
    "{\"a\":"sv,
    "{\"a\":1"sv,
    "{\"a\":1,"sv,
    "[1"sv,
    "[1,"sv,
    "[[]"sv,
    "\""sv,
    "\"a"sv,
    "\"a\\"sv,
    "\"a\\\""sv,
    "t"sv,
    "tru"sv,
    "fals"sv,
    "nul"sv,
    "-"sv,
    "1."sv,
    "1e"sv,
    "1e+"sv,
    "\"\\u"sv,
    "\"\\u12"sv,
    "\"\\uD800"sv,
    "\"\\uD800\\"sv,
    "\"\\uD800\\u"sv,
    "\"\\uD800\\uDC0"sv,
    // brackets and commas
    "}"sv,
    "]"sv,
    "{]"sv,
    "[}"sv,
    "[1}"sv,
    "{\"a\":1]"sv,
    "[,]"sv,
    "[,1]"sv,
    "[1,]"sv,
    "[1,,2]"sv,
    "[1 2]"sv,
    "{,}"sv,
    "{\"a\":1,}"sv,
    "{\"a\":1,,\"b\":2}"sv,
    "{\"a\" 1}"sv,
    "{\"a\" }"sv,
    "{\"a\" ,1}"sv,
    "{\"a\" "sv,
    "{\"a\" \"b\":1}"sv,
    "{\"a\" : :1}"sv,
    "{\"a\"}"sv,
    "{\"a\",1}"sv,
    "{:1}"sv,
    "{a:1}"sv,
    "{1:1}"sv,
    "{'a':1}"sv,
    "{\"a\"::1}"sv,
    "{\"a\":}"sv,
    "[1:2]"sv,
    "[\"a\":1]"sv,
    "{null:1}"sv,
    ","sv,
    ":"sv,
    "{\"a\":1 \"b\":2}"sv,
    "[[]"sv,
    // words
    "True"sv,
    "TRUE"sv,
    "nullx"sv,
    "true1"sv,
    "[truefalse]"sv,
    "nil"sv,
    "undefined"sv,
    "NaN"sv,
    "Infinity"sv,
    "-Infinity"sv,
    "[nul]"sv,
    "ping"sv,
    "GET / HTTP/1.1"sv,
    "'a'"sv,
    "// a"sv,
    "/**/1"sv,
    "[1/**/]"sv,
    // numbers
    "007"sv,
    "01"sv,
    "-01"sv,
    "[00]"sv,
    "[1.]"sv,
    "[.5]"sv,
    "[-.5]"sv,
    "[+1]"sv,
    "[--1]"sv,
    "[-]"sv,
    "[1e]"sv,
    "[1e+]"sv,
    "[1.e1]"sv,
    "[1e1.5]"sv,
    "[1.5.5]"sv,
    "[0x10]"sv,
    "0x10"sv,
    "[1_000]"sv,
    "[1a]"sv,
    "[1e1e1]"sv,
    "[- 1]"sv,
    "[1+2]"sv,
    "1+"sv,
    "[\xef\xbc\x91]"sv,
    // strings
    "[\"\t\"]"sv,
    "[\"\n\"]"sv,
    "[\"\x01\"]"sv,
    "[\"\x1f\"]"sv,
    "[\"\0\"]"sv,
    "[\"\\a\"]"sv,
    "[\"\\x41\"]"sv,
    "[\"\\U0041\"]"sv,
    "[\"\\'\"]"sv,
    "[\"\\0\"]"sv,
    "[\"\\\0\"]"sv,
    "[\"\\u00\"]"sv,
    "[\"\\u00g0\"]"sv,
    "[\"\\u 041\"]"sv,
    "[\"\\u+041\"]"sv,
    "[\"\\u0000\"]"sv,
    "[\"a\\u0000b\"]"sv,
    "[\"\\uD800\"]"sv,
    "[\"\\uDBFF\"]"sv,
    "[\"\\uDC00\"]"sv,
    "[\"\\uDFFF\"]"sv,
    "[\"\\uD800\\u0041\"]"sv,
    "[\"\\uD800\\uD800\"]"sv,
    "[\"\\uD800\\uE000\"]"sv,
    "[\"\\uD800\\n\"]"sv,
    "[\"\\uDE00\\uD83D\"]"sv,
    "[\"\\uD800xuDC00\"]"sv,
    "{\"\\u0000\":1}"sv,
    "{\"\t\":1}"sv,
    // UTF-8
    "[\"\x80\"]"sv,
    "[\"\xff\"]"sv,
    "[\"\xc3\"]"sv,
    "[\"\xc0\x80\"]"sv,
    "[\"\xe0\x80\x80\"]"sv,
    "[\"\xed\xa0\x80\"]"sv,
    "[\"\xf4\x90\x80\x80\"]"sv,
    "[\"\xf0\x80\x80\x80\"]"sv,
    "[\xc3\xa9]"sv,
    "\xef\xbb\xbf{}"sv,
    "\xef\xbb\xbf"sv,
    "\xff\xfe{\0}\0"sv,
    "{\"\xff\":1}"sv,
    // white space that JSON does not allow
    "\v[]"sv,
    "[\f]"sv,
    "[\xc2\xa0]"sv,
    "\0[]"sv,
    "[1\0]"sv,
    "{\"a\"\v:1}"sv,
    "{\"a\"\f:1}"sv,
    "{\"a\"\0:1}"sv,
    "{\"a\"\xc2\xa0:1}"sv,
};

constexpr std::string_view trailing[] = {
    "{}{}"sv, "[1] xyz"sv, "{} }"sv, "[]]"sv,    "1 2"sv,     "\"a\"\"b\""sv, "{},"sv,  "{}\0"sv,
    "[]#"sv,  "null,"sv,   "1,2"sv,  "{}\xff"sv, "true []"sv, "0{"sv,         "[]\v"sv,
};

TEST(json_scan, accepts_documents)
{
    for (const std::string_view text : accepted)
    {
        EXPECT_EQ(scan(text), ZET_JSON_SCAN_OK) << text;
    }
}

TEST(json_scan, agrees_with_other_parsers_on_what_it_accepts)
{
    for (const std::string_view text : accepted)
    {
        cJSON *document = cJSON_ParseWithLength(text.data(), text.size());
        EXPECT_NE(document, nullptr) << text;
        cJSON_Delete(document);
        // The other parser does not accept numbers beyond the range of double.
        if (text.find("e400") == std::string_view::npos)
        {
            EXPECT_TRUE(nlohmann::json::accept(text)) << text;
        }
    }
}

TEST(json_scan, refuses_invalid_documents)
{
    for (const std::string_view text : refused)
    {
        EXPECT_EQ(scan(text), ZET_JSON_SCAN_NOT_JSON) << text;
    }
}

TEST(json_scan, reports_text_after_the_document)
{
    for (const std::string_view text : trailing)
    {
        EXPECT_EQ(scan(text), ZET_JSON_SCAN_TRAILING_TEXT) << text;
    }
}

TEST(json_scan, refuses_every_truncated_document)
{
    const std::string_view complete = R"({"a":[1.5e+3,"b\n\u00e9\uD83D\uDE00é",{"c":true}],"d":{"e":null}})";
    ASSERT_EQ(scan(complete), ZET_JSON_SCAN_OK);
    for (size_t length = 0; length < complete.size(); ++length)
    {
        EXPECT_EQ(scan(complete.substr(0, length)), ZET_JSON_SCAN_NOT_JSON) << complete.substr(0, length);
    }
}

TEST(json_scan, refuses_every_control_character_in_a_string)
{
    for (int character = 0; character < 0x20; ++character)
    {
        const std::string text = {'"', static_cast<char>(character), '"'};
        EXPECT_EQ(scan(text), ZET_JSON_SCAN_NOT_JSON) << character;
    }
}

TEST(json_scan, accepts_eight_escapes_of_one_letter)
{
    for (int character = 0; character < 256; ++character)
    {
        const std::string text = {'"', '\\', static_cast<char>(character), '"'};
        const bool known =
            std::string_view("\"\\/bfnrt").find(static_cast<char>(character)) != std::string_view::npos;
        EXPECT_EQ(scan(text), known ? ZET_JSON_SCAN_OK : ZET_JSON_SCAN_NOT_JSON) << character;
    }
}

TEST(json_scan, accepts_nesting_up_to_the_limit)
{
    const size_t limit = zet_json_scan_max_depth;
    EXPECT_EQ(scan(repeated("[", limit) + repeated("]", limit)), ZET_JSON_SCAN_OK);
    EXPECT_EQ(scan(repeated("[", limit + 1) + repeated("]", limit + 1)), ZET_JSON_SCAN_TOO_DEEP);
    EXPECT_EQ(scan(repeated("{\"a\":", limit) + "1" + repeated("}", limit)), ZET_JSON_SCAN_OK);
    EXPECT_EQ(scan(repeated("{\"a\":", limit) + "{}" + repeated("}", limit)), ZET_JSON_SCAN_TOO_DEEP);
    EXPECT_EQ(scan(repeated("[{\"a\":", limit / 2) + "1" + repeated("}]", limit / 2)), ZET_JSON_SCAN_OK);
    EXPECT_EQ(scan(repeated("[{\"a\":", limit / 2) + "[]" + repeated("}]", limit / 2)),
              ZET_JSON_SCAN_TOO_DEEP);
    EXPECT_EQ(scan(repeated("[", 2000)), ZET_JSON_SCAN_TOO_DEEP);
    EXPECT_EQ(scan(repeated("[", 100000)), ZET_JSON_SCAN_TOO_DEEP);
}

TEST(json_scan, limits_the_depth_and_not_the_number_of_brackets)
{
    EXPECT_EQ(scan("[" + repeated("[],{},", 1000) + "[]]"), ZET_JSON_SCAN_OK);
}

TEST(json_scan, refuses_a_bracket_closed_by_the_wrong_kind)
{
    std::mt19937 random(4);
    for (int i = 0; i < 500; ++i)
    {
        std::string open;
        std::string close;
        for (uint32_t depth = 0; depth < zet_json_scan_max_depth; ++depth)
        {
            const bool object = (random() & 1U) != 0;
            open += object ? "{\"k\":" : "[";
            close.insert(0, object ? "}" : "]");
        }
        open += "0";
        ASSERT_EQ(scan(open + close), ZET_JSON_SCAN_OK);
        char &wrong = close[random() % close.size()];
        wrong = wrong == '}' ? ']' : '}';
        ASSERT_EQ(scan(open + close), ZET_JSON_SCAN_NOT_JSON) << open << close;
    }
}

TEST(json_scan, accepts_values_up_to_the_limit)
{
    const struct
    {
        std::string_view text;
        uint32_t values;
    } documents[] = {
        {"1", 1}, {"[]", 1}, {"[1]", 2}, {"[1,2,3]", 4}, {R"({"a":1,"b":[true,null]})", 5}, {"[[[]],{}]", 4},
    };
    for (const auto &document : documents)
    {
        EXPECT_EQ(scan(document.text, document.values), ZET_JSON_SCAN_OK) << document.text;
        EXPECT_EQ(scan(document.text, document.values - 1), ZET_JSON_SCAN_TOO_MANY_VALUES) << document.text;
    }
}

TEST(json_scan, accepts_what_another_strict_parser_accepts)
{
    // Documents with a random change in one place. Some are still valid.
    const std::string_view seeds[] = {
        R"({"command":"configure","configuration":{"groups":[[{"sensor_id":1,"config":{"hwaas":8}}]]}})",
        R"([0,-1.5e+1,"a\"\\\u20ac",true,false,null,{"k":[]}])",
    };
    constexpr std::string_view letters = "{}[]:,\"\\ \tu0123456789abcdefE+-.tnr\x01\xc3\xa9/";
    std::mt19937 random(5);
    int valid = 0;
    for (int i = 0; i < 20000; ++i)
    {
        std::string text(seeds[i % 2]);
        for (auto changes = random() % 3; changes > 0; --changes)
        {
            text[random() % text.size()] = letters[random() % letters.size()];
        }
        const bool strict = nlohmann::json::accept(text);
        valid += strict ? 1 : 0;
        ASSERT_EQ(scan(text) == ZET_JSON_SCAN_OK, strict) << text;
    }
    EXPECT_GT(valid, 2000);
}

} // namespace
