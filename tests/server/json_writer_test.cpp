/** @file
 * The JSON writer: numbers that read back, strings that any parser accepts, complete documents.
 */
#include "zet_json_writer.h"

#include <bit>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "zet_vantor_server_base_internal.h"

namespace
{

std::string sent;
size_t writes = 0;

void write_data(const void *data, uint32_t size)
{
    sent.append(static_cast<const char *>(data), size);
    ++writes;
}

/** Begins a document. */
zet_json_writer_t begin()
{
    sent.clear();
    writes = 0;
    zet_json_writer_t writer;
    zet_json_writer_init(&writer, write_data);
    return writer;
}

std::string written(double value)
{
    zet_json_writer_t writer = begin();
    zet_json_writer_number(&writer, value);
    zet_json_writer_finish(&writer);
    EXPECT_EQ(sent.back(), '\n');
    sent.pop_back();
    return sent;
}

std::string written(const char *text)
{
    zet_json_writer_t writer = begin();
    zet_json_writer_string(&writer, text);
    zet_json_writer_finish(&writer);
    sent.pop_back();
    return sent;
}

/** Sends a document made by cJSON. */
std::string sent_document(cJSON *document)
{
    sent.clear();
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> owner(document, cJSON_Delete);
    EXPECT_TRUE(zet_vantor_server_write_json(write_data, document));
    return sent;
}

/** An array with this depth of nesting. */
cJSON *nested(uint32_t depth)
{
    cJSON *document = cJSON_CreateArray();
    for (uint32_t level = 1; level < depth; ++level)
    {
        cJSON *outer = cJSON_CreateArray();
        cJSON_AddItemToArray(outer, document);
        document = outer;
    }
    return document;
}

/** The shortest text of a number in the standard library. */
template <typename number_t> std::string shortest(number_t value)
{
    char text[400];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

/**
 * Expects a number that is not a small integer to read back, and to be written like in the standard library.
 * A large integer may end in zeros where the library writes digits that are not needed.
 */
template <typename number_t> void expect_shortest(number_t value)
{
    const std::string text = written(static_cast<double>(value));
    number_t read = 0;
    std::from_chars(text.data(), text.data() + text.size(), read);
    ASSERT_EQ(read, value) << text;
    ASSERT_TRUE(nlohmann::json::accept(text)) << text;
    const std::string expected = shortest(value);
    if (std::trunc(value) != value || expected.find('e') != std::string::npos)
    {
        ASSERT_EQ(text, expected);
    }
    else
    {
        ASSERT_EQ(text.size(), expected.size()) << text << " " << expected;
    }
}

/** Whether a number is written without an exponent, because it is an exact integer. */
bool is_exact_integer(double value)
{
    return std::trunc(value) == value && std::fabs(value) <= 9007199254740992.0;
}

TEST(json_writer, writes_floats_in_the_shortest_form)
{
    EXPECT_EQ(written(static_cast<double>(0.1F)), "0.1");
    EXPECT_EQ(written(static_cast<double>(0.0025F)), "0.0025");
    EXPECT_EQ(written(static_cast<double>(3125.5F)), "3125.5");
    EXPECT_EQ(written(static_cast<double>(-1234.5678F)), "-1234.5677");
    EXPECT_EQ(written(static_cast<double>(FLT_MIN)), "1.1754944e-38");
    EXPECT_EQ(written(static_cast<double>(1e-45F)), "1e-45");
    EXPECT_EQ(written(static_cast<double>(FLT_MAX)), "3.4028235e+38");
}

TEST(json_writer, writes_doubles_that_are_not_floats_in_the_shortest_form)
{
    EXPECT_EQ(written(0.1), "0.1");
    EXPECT_EQ(written(12.345), "12.345");
    EXPECT_EQ(written(1e300), "1e+300");
    EXPECT_EQ(written(DBL_MAX), "1.7976931348623157e+308");
    EXPECT_EQ(written(std::numeric_limits<double>::denorm_min()), "5e-324");
}

TEST(json_writer, writes_whole_numbers_without_an_exponent)
{
    EXPECT_EQ(written(0.0), "0");
    EXPECT_EQ(written(-1.0), "-1");
    EXPECT_EQ(written(2147483648.0), "2147483648");
    EXPECT_EQ(written(4294967295.0), "4294967295");
    EXPECT_EQ(written(1e15), "1000000000000000");
    EXPECT_EQ(written(9007199254740992.0), "9007199254740992");
    EXPECT_EQ(written(-9007199254740992.0), "-9007199254740992");
}

TEST(json_writer, keeps_the_sign_of_zero)
{
    EXPECT_EQ(written(-0.0), "-0");
}

TEST(json_writer, writes_null_for_numbers_that_are_not_finite)
{
    EXPECT_EQ(written(static_cast<double>(NAN)), "null");
    EXPECT_EQ(written(static_cast<double>(INFINITY)), "null");
    EXPECT_EQ(written(-static_cast<double>(INFINITY)), "null");
}

TEST(json_writer, writes_64_bit_integers_exactly)
{
    zet_json_writer_t writer = begin();
    zet_json_writer_uint(&writer, UINT64_MAX);
    zet_json_writer_finish(&writer);
    EXPECT_EQ(sent, "18446744073709551615\n");
}

TEST(json_writer, writes_integers_of_every_length)
{
    const auto text = [](uint64_t value) {
        sent.clear();
        zet_json_writer_t writer;
        zet_json_writer_init(&writer, write_data);
        zet_json_writer_uint(&writer, value);
        zet_json_writer_finish(&writer);
        return sent;
    };
    for (uint64_t power = 1; power <= UINT64_MAX / 10U; power *= 10U)
    {
        for (const uint64_t value :
             {power - 1U, power, power + 1U, power * 10U - 1U, power * 7U + power / 3U})
        {
            EXPECT_EQ(text(value), std::to_string(value) + "\n");
        }
    }
}

TEST(json_writer, writes_thousandths_exactly)
{
    const auto thousandths = [](uint64_t value) {
        zet_json_writer_t writer = begin();
        zet_json_writer_begin_array(&writer);
        zet_json_writer_thousandths(&writer, value);
        zet_json_writer_thousandths(&writer, 0);
        zet_json_writer_end_array(&writer);
        zet_json_writer_finish(&writer);
        return sent;
    };
    EXPECT_EQ(thousandths(1), "[0.001,0]\n");
    EXPECT_EQ(thousandths(20), "[0.02,0]\n");
    EXPECT_EQ(thousandths(12000), "[12,0]\n");
    EXPECT_EQ(thousandths(12345), "[12.345,0]\n");
    EXPECT_EQ(thousandths(2097152250), "[2097152.25,0]\n");
    EXPECT_EQ(thousandths(UINT64_MAX), "[18446744073709551.615,0]\n");
    for (uint64_t value = 0; value < 20000; ++value)
    {
        ASSERT_EQ(thousandths(value), "[" + shortest(static_cast<double>(value) / 1000.0) + ",0]\n");
    }
}

TEST(json_writer, writes_floats_of_every_exponent_as_the_standard_library_does)
{
    std::mt19937 random(1);
    for (uint32_t sign_and_exponent = 0; sign_and_exponent < 512; ++sign_and_exponent)
    {
        const bool finite = (sign_and_exponent & 0xFFU) != 0xFFU;
        for (uint32_t i = 0; finite && i < 40; ++i)
        {
            // Both ends and the middle of the binade, then random values.
            const uint32_t corners[] = {0U, 1U, 2U, 0x400000U, 0x7FFFFEU, 0x7FFFFFU};
            const auto fraction = i < 6 ? corners[i] : static_cast<uint32_t>(random() & 0x7FFFFFU);
            const auto value = std::bit_cast<float>(sign_and_exponent << 23U | fraction);
            if (!is_exact_integer(value))
            {
                expect_shortest(value);
            }
        }
    }
}

TEST(json_writer, writes_doubles_of_every_exponent_as_the_standard_library_does)
{
    std::mt19937_64 random(2);
    for (uint64_t exponent = 0; exponent < 2047; ++exponent)
    {
        for (uint32_t i = 0; i < 7; ++i)
        {
            const uint64_t corners[] = {0U, 1U, 2U, 0xFFFFFFFFFFFFEU, 0xFFFFFFFFFFFFFU};
            const uint64_t fraction = i < 5 ? corners[i] : random() >> 12U;
            const auto value = std::bit_cast<double>(exponent << 52U | fraction);
            const bool is_float = static_cast<double>(static_cast<float>(value)) == value;
            if (!is_float && !is_exact_integer(value))
            {
                expect_shortest(value);
            }
        }
    }
}

TEST(json_writer, writes_decimal_fractions_in_the_shortest_form)
{
    for (int thousandths = -5000; thousandths <= 5000; ++thousandths)
    {
        const double value = thousandths / 1000.0;
        if (!is_exact_integer(value))
        {
            const bool is_float = static_cast<double>(static_cast<float>(value)) == value;
            ASSERT_EQ(written(value), is_float ? shortest(static_cast<float>(value)) : shortest(value));
            const auto single = static_cast<float>(value);
            ASSERT_EQ(written(static_cast<double>(single)), shortest(single));
        }
    }
}

TEST(json_writer, writes_integers_exactly)
{
    std::mt19937_64 random(3);
    for (int bits = 0; bits <= 53; ++bits)
    {
        for (int i = 0; i < 200; ++i)
        {
            const auto value = static_cast<int64_t>(random() >> 11U >> (53 - bits));
            EXPECT_EQ(written(static_cast<double>(value)), std::to_string(value));
            EXPECT_EQ(written(static_cast<double>(-value)), value == 0 ? "0" : std::to_string(-value));
        }
    }
}

TEST(json_writer, escapes_characters_that_a_string_must_not_contain)
{
    EXPECT_EQ(written("a\"b\\c/d"), R"("a\"b\\c/d")");
    EXPECT_EQ(written("\b\f\n\r\t\x01\x1f"), R"("\u0008\u000c\u000a\u000d\u0009\u0001\u001f")");
    EXPECT_EQ(written("\x7f"), "\"\x7f\"");
    EXPECT_EQ(written(""), "\"\"");
    EXPECT_EQ(written(static_cast<const char *>(nullptr)), "\"\"");
}

TEST(json_writer, keeps_utf8_and_replaces_other_bytes)
{
    EXPECT_EQ(written("\u00e9\u20ac\U0001F600"), "\"\u00e9\u20ac\U0001F600\"");
    EXPECT_EQ(written("a\xff"
                      "b"),
              R"("a\ufffdb")");
    EXPECT_EQ(written("\xe2\x82"), R"("\ufffd\ufffd")");
    EXPECT_EQ(written("\xc0\x80"), R"("\ufffd\ufffd")");
}

TEST(json_writer, writes_every_byte_so_that_a_strict_parser_accepts_it)
{
    for (int first = 1; first < 256; ++first)
    {
        for (int second = 1; second < 256; second += 3)
        {
            const std::string text = {static_cast<char>(first), static_cast<char>(second)};
            ASSERT_TRUE(nlohmann::json::accept(written(text.c_str()))) << first << " " << second;
        }
    }
}

TEST(json_writer, separates_members_and_elements)
{
    zet_json_writer_t writer = begin();
    zet_json_writer_begin_object(&writer);
    zet_json_writer_key(&writer, "a");
    zet_json_writer_begin_array(&writer);
    zet_json_writer_bool(&writer, true);
    zet_json_writer_bool(&writer, false);
    zet_json_writer_null(&writer);
    zet_json_writer_begin_object(&writer);
    zet_json_writer_end_object(&writer);
    zet_json_writer_begin_array(&writer);
    zet_json_writer_end_array(&writer);
    zet_json_writer_end_array(&writer);
    zet_json_writer_key(&writer, "b");
    zet_json_writer_uint(&writer, 7);
    zet_json_writer_key(&writer, nullptr);
    zet_json_writer_string(&writer, "c");
    zet_json_writer_end_object(&writer);
    EXPECT_EQ(writes, 0U);
    zet_json_writer_finish(&writer);
    EXPECT_EQ(sent, "{\"a\":[true,false,null,{},[]],\"b\":7,\"\":\"c\"}\n");
    EXPECT_EQ(writes, 1U);
}

TEST(json_writer, sends_complete_text_of_every_length_around_its_buffer_size)
{
    for (size_t length = 0; length < 3 * sizeof(zet_json_writer_t::buffer); ++length)
    {
        const std::string text(length, 'x');
        EXPECT_EQ(written(text.c_str()), "\"" + text + "\"");
        // It does not have to fill its buffer to the last byte, but almost.
        EXPECT_LE(writes, (length + 3) / (sizeof(zet_json_writer_t::buffer) - 8) + 1);
    }
}

TEST(json_writer, sends_every_kind_of_value_completely_across_the_end_of_its_buffer)
{
    using write_function_t = void (*)(zet_json_writer_t *);
    const std::pair<write_function_t, const char *> pieces[] = {
        {[](zet_json_writer_t *writer) { zet_json_writer_number(writer, -2.2250738585072014e-308); },
         "-2.2250738585072014e-308"},
        {[](zet_json_writer_t *writer) { zet_json_writer_uint(writer, UINT64_MAX); }, "18446744073709551615"},
        {[](zet_json_writer_t *writer) { zet_json_writer_thousandths(writer, UINT64_MAX); },
         "18446744073709551.615"},
        {[](zet_json_writer_t *writer) { zet_json_writer_bool(writer, false); }, "false"},
        {[](zet_json_writer_t *writer) { zet_json_writer_bool(writer, true); }, "true"},
        {[](zet_json_writer_t *writer) { zet_json_writer_null(writer); }, "null"},
        {[](zet_json_writer_t *writer) { zet_json_writer_string(writer, "\x01\"\xF0\x9F\x98\x80\xFF"); },
         "\"\\u0001\\\"\xF0\x9F\x98\x80\\ufffd\""},
    };
    for (const auto &[write, text] : pieces)
    {
        for (size_t length = sizeof(zet_json_writer_t::buffer) - 40;
             length < sizeof(zet_json_writer_t::buffer); ++length)
        {
            zet_json_writer_t writer = begin();
            zet_json_writer_begin_array(&writer);
            zet_json_writer_string(&writer, std::string(length, 'x').c_str());
            write(&writer);
            zet_json_writer_begin_object(&writer);
            zet_json_writer_key(&writer, "k");
            write(&writer);
            zet_json_writer_end_object(&writer);
            zet_json_writer_end_array(&writer);
            zet_json_writer_finish(&writer);
            EXPECT_EQ(sent, "[\"" + std::string(length, 'x') + "\"," + text + ",{\"k\":" + text + "}]\n");
        }
    }
}

TEST(write_json, writes_a_document_in_one_line)
{
    const char *text =
        R"({"result_info":[[{"tick":48213,"ok":false,"t":-3,"v":0.75,"n":null},{}],[]],"status":"ok"})";
    EXPECT_EQ(sent_document(cJSON_Parse(text)), std::string(text) + "\n");
}

/** A string with characters of one to four bytes, some of which must be escaped. */
std::string random_string(std::mt19937 &random)
{
    static constexpr const char *characters[] = {"a",    "b",    "\"", "\\", "/", "\n",
                                                 "\x1f", "\x7f", "é",  "€",  "😀"};
    std::string text;
    for (auto length = random() % 30; length > 0; --length)
    {
        text += characters[random() % std::size(characters)];
    }
    return text;
}

nlohmann::json random_value(std::mt19937 &random, int depth)
{
    nlohmann::json value;
    const auto size = random() % 6;
    switch (random() % (depth > 0 ? 7 : 5))
    {
    case 0:
        return nullptr;
    case 1:
        return random() % 2 == 0;
    case 2:
        return static_cast<uint32_t>(random());
    case 3:
        return static_cast<int>(random() % 2000000) / 1000.0 - 1000.0;
    case 4:
        return random_string(random);
    case 5:
        value = nlohmann::json::array();
        while (value.size() < size)
        {
            value.push_back(random_value(random, depth - 1));
        }
        return value;
    default:
        value = nlohmann::json::object();
        while (value.size() < size)
        {
            value[random_string(random)] = random_value(random, depth - 1);
        }
        return value;
    }
}

TEST(write_json, writes_documents_that_read_back_the_same)
{
    std::mt19937 random(4);
    for (int i = 0; i < 3000; ++i)
    {
        const nlohmann::json document = random_value(random, 6);
        const std::string text = sent_document(cJSON_Parse(document.dump().c_str()));
        ASSERT_EQ(nlohmann::json::parse(text), document) << text;
        ASSERT_EQ(text.find('\n'), text.size() - 1);
    }
}

/** Returns an array of three objects that share their keys, after a text. */
cJSON *objects_with_shared_keys(const std::string &before, const std::vector<std::string> &keys)
{
    cJSON *const array = cJSON_CreateArray();
    cJSON_AddItemToArray(array, cJSON_CreateString(before.c_str()));
    for (int i = 0; i < 3; ++i)
    {
        cJSON *const object = cJSON_CreateObject();
        for (const std::string &key : keys)
        {
            cJSON_AddItemToObjectCS(object, key.c_str(), cJSON_CreateNumber(i));
        }
        cJSON_AddItemToArray(array, object);
    }
    return array;
}

TEST(write_json, repeats_keys_of_every_length_at_every_place_in_its_buffer)
{
    std::mt19937 random(5);
    for (size_t length = 0; length < 600; ++length)
    {
        const std::string before(random() % 300, '-');
        std::vector<std::string> keys(1 + random() % 12);
        for (size_t i = 0; i < keys.size(); ++i)
        {
            // Of different lengths, and the bytes of some are escaped.
            keys[i] = std::string(length * (i + 1) / keys.size(), i % 3 == 2 ? '"' : 'k') + std::to_string(i);
        }
        nlohmann::json expected = nlohmann::json::array({before});
        for (int i = 0; i < 3; ++i)
        {
            nlohmann::json object = nlohmann::json::object();
            for (const std::string &key : keys)
            {
                object[key] = i;
            }
            expected.push_back(object);
        }
        const std::string text = sent_document(objects_with_shared_keys(before, keys));
        ASSERT_EQ(nlohmann::json::parse(text), expected) << text;
    }
}

TEST(write_json, writes_a_document_that_is_a_single_value)
{
    EXPECT_EQ(sent_document(cJSON_CreateTrue()), "true\n");
    EXPECT_EQ(sent_document(cJSON_CreateArray()), "[]\n");
    EXPECT_EQ(sent_document(cJSON_CreateNumber(4294967295.0)), "4294967295\n");
}

TEST(write_json, does_not_write_the_siblings_of_the_document)
{
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> document(cJSON_Parse("[[1],[2]]"), cJSON_Delete);
    sent.clear();
    EXPECT_TRUE(zet_vantor_server_write_json(write_data, document->child));
    EXPECT_EQ(sent, "[1]\n");
}

TEST(write_json, writes_null_for_values_that_are_not_json)
{
    EXPECT_EQ(sent_document(cJSON_CreateRaw("raw")), "null\n");
    EXPECT_EQ(sent_document(cJSON_CreateStringReference(nullptr)), "\"\"\n");
}

TEST(write_json, refuses_a_null_argument)
{
    cJSON *document = cJSON_CreateObject();
    EXPECT_FALSE(zet_vantor_server_write_json(nullptr, document));
    sent.clear();
    EXPECT_FALSE(zet_vantor_server_write_json(write_data, nullptr));
    EXPECT_EQ(sent, "");
    cJSON_Delete(document);
}

TEST(write_json, sends_nothing_of_a_document_that_is_nested_too_deep)
{
    EXPECT_EQ(sent_document(nested(zet_json_writer_max_depth)).size(), 2 * zet_json_writer_max_depth + 1);
    cJSON *document = nested(zet_json_writer_max_depth + 1);
    sent.clear();
    EXPECT_FALSE(zet_vantor_server_write_json(write_data, document));
    EXPECT_EQ(sent, "");
    cJSON_Delete(document);
}

} // namespace
