/** @file
 * The JSON utilities: every getter, adder and field type.
 */
#include "zet_cjson_utils.h"

#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "fake_memory.h"
#include "zet_integration.h"

namespace
{

struct document_deleter_t
{
    void operator()(cJSON *document) const
    {
        cJSON_Delete(document);
    }
};

using document_t = std::unique_ptr<cJSON, document_deleter_t>;

document_t parse(const std::string &text)
{
    document_t document(cJSON_Parse(text.c_str()));
    EXPECT_NE(document, nullptr) << text;
    return document;
}

/** Reads the member "v" of a document as an integer. Returns 77 on failure. */
int read_int(const std::string &value)
{
    const document_t document = parse("{\"v\":" + value + "}");
    int result = 77;
    const bool found = get_json_int_value(document.get(), "v", &result);
    EXPECT_EQ(found, result != 77) << value;
    return result;
}

/** Reads the member "v" of a document as a float. Returns 77 on failure. */
float read_float(const std::string &value)
{
    const document_t document = parse("{\"v\":" + value + "}");
    float result = 77.0F;
    const bool found = get_json_float_value(document.get(), "v", &result);
    EXPECT_EQ(found, result != 77.0F) << value;
    return result;
}

constexpr json_field_t all_types[] = {
    {"boolean", FIELD_TYPE_BOOLEAN}, {"float", FIELD_TYPE_FLOAT}, {"int", FIELD_TYPE_INT},
    {"string", FIELD_TYPE_STRING},   {"array", FIELD_TYPE_ARRAY}, {"object", FIELD_TYPE_OBJECT},
    {"enum", FIELD_TYPE_ENUM},       {"any", FIELD_TYPE_ANY},     {nullptr, FIELD_TYPE_NONE},
};

bool validates(const std::string &text)
{
    return json_validate(parse(text).get(), all_types);
}

TEST(json_getters, read_every_value_of_an_int)
{
    EXPECT_EQ(read_int("0"), 0);
    EXPECT_EQ(read_int("-5"), -5);
    EXPECT_EQ(read_int("2147483647"), INT_MAX);
    EXPECT_EQ(read_int("-2147483648"), INT_MIN);
    EXPECT_EQ(read_int("1e3"), 1000);
    EXPECT_EQ(read_int("12.0"), 12);
}

TEST(json_getters, refuse_values_that_are_not_an_int)
{
    for (const char *value : {"2147483648", "-2147483649", "0.5", "-1.25", "1e400", "-1e400", "1e20", "true",
                              "\"1\"", "null", "[1]", "{}"})
    {
        EXPECT_EQ(read_int(value), 77) << value;
    }
}

TEST(json_getters, read_the_full_range_of_a_float)
{
    EXPECT_EQ(read_float("0"), 0.0F);
    EXPECT_EQ(read_float("0.1"), 0.1F);
    EXPECT_EQ(read_float("-2.5"), -2.5F);
    EXPECT_EQ(read_float("3.4028235e38"), FLT_MAX);
    EXPECT_EQ(read_float("-3.4028235e38"), -FLT_MAX);
    EXPECT_EQ(read_float("3.40282356e38"), FLT_MAX);
    EXPECT_EQ(read_float("1e-45"), std::numeric_limits<float>::denorm_min());
    EXPECT_EQ(read_float("1e-400"), 0.0F);
    EXPECT_TRUE(std::signbit(read_float("-0.0")));
}

TEST(json_getters, round_to_the_nearest_float)
{
    const auto item = document_t(cJSON_CreateObject());
    cJSON *const member = cJSON_AddNumberToObject(item.get(), "v", 0.0);
    std::mt19937_64 random(1);
    // Every exponent: random fractions, and some that are half-way between two numbers of type `float`.
    for (uint64_t exponent = 0; exponent < 1023 + 128; ++exponent)
    {
        for (uint64_t count = 0; count < 200; ++count)
        {
            const uint64_t fraction =
                count % 2 == 0 ? random() >> 12U : (random() >> (12U + 23U)) << (count % 53U);
            const double number =
                std::bit_cast<double>(exponent << 52U | (fraction & (UINT64_MAX >> 12U)) | random() << 63U);
            const auto expected = static_cast<float>(number);
            member->valuedouble = number;
            float value = 77.0F;
            ASSERT_EQ(get_json_float_value(item.get(), "v", &value), std::isfinite(expected)) << number;
            ASSERT_EQ(std::bit_cast<uint32_t>(value),
                      std::bit_cast<uint32_t>(std::isfinite(expected) ? expected : 77.0F))
                << number;
        }
    }
}

TEST(json_getters, refuse_values_that_are_not_a_float)
{
    for (const char *value :
         {"3.4028236e38", "-3.4028236e38", "1e39", "1e400", "-1e400", "true", "\"1\"", "null", "[1]"})
    {
        EXPECT_EQ(read_float(value), 77.0F) << value;
    }
}

TEST(json_getters, read_a_bool)
{
    const document_t document = parse(R"({"yes":true,"no":false,"one":1,"word":"true","nothing":null})");
    bool value = false;
    EXPECT_TRUE(get_json_bool_value(document.get(), "yes", &value));
    EXPECT_TRUE(value);
    EXPECT_TRUE(get_json_bool_value(document.get(), "no", &value));
    EXPECT_FALSE(value);
    for (const char *key : {"one", "word", "nothing", "absent"})
    {
        value = true;
        EXPECT_FALSE(get_json_bool_value(document.get(), key, &value)) << key;
        EXPECT_TRUE(value) << key;
    }
}

TEST(json_getters, return_a_string_without_copying_it)
{
    const document_t document = parse(R"({"word":"abc","one":1,"nothing":null})");
    char *value = nullptr;
    EXPECT_TRUE(get_json_string_value(document.get(), "word", &value));
    EXPECT_EQ(value, cJSON_GetObjectItemCaseSensitive(document.get(), "word")->valuestring);
    char kept[] = "kept";
    for (const char *key : {"one", "nothing", "absent"})
    {
        value = kept;
        EXPECT_FALSE(get_json_string_value(document.get(), key, &value)) << key;
        EXPECT_EQ(value, kept) << key;
    }
}

TEST(json_getters, match_keys_exactly)
{
    const document_t document = parse(R"({"Rate":1})");
    int value = 77;
    EXPECT_FALSE(get_json_int_value(document.get(), "rate", &value));
    EXPECT_FALSE(is_json_node(document.get(), "rate"));
    EXPECT_TRUE(get_json_int_value(document.get(), "Rate", &value));
    EXPECT_TRUE(is_json_node(document.get(), "Rate"));
}

TEST(json_getters, find_a_node_of_any_type)
{
    const document_t document = parse(R"({"a":null,"b":[],"c":{},"d":1,"e":"","f":false})");
    for (const char *key : {"a", "b", "c", "d", "e", "f"})
    {
        EXPECT_TRUE(is_json_node(document.get(), key)) << key;
    }
    EXPECT_FALSE(is_json_node(document.get(), "g"));
}

TEST(json_getters, find_nothing_in_a_value_without_members)
{
    const document_t array = parse(R"([1,"a",true])");
    for (const cJSON *node : {static_cast<const cJSON *>(nullptr), static_cast<const cJSON *>(array.get()),
                              static_cast<const cJSON *>(array->child)})
    {
        int int_value = 77;
        float float_value = 77.0F;
        bool bool_value = true;
        char kept[] = "kept";
        char *string_value = kept;
        EXPECT_FALSE(get_json_int_value(node, "", &int_value));
        EXPECT_FALSE(get_json_float_value(node, "", &float_value));
        EXPECT_FALSE(get_json_bool_value(node, "", &bool_value));
        EXPECT_FALSE(get_json_string_value(node, "", &string_value));
        EXPECT_FALSE(is_json_node(node, ""));
        EXPECT_EQ(int_value, 77);
        EXPECT_EQ(float_value, 77.0F);
        EXPECT_TRUE(bool_value);
        EXPECT_EQ(string_value, kept);
    }
}

TEST(json_validate, accepts_every_type_where_it_is_allowed)
{
    EXPECT_TRUE(validates("{}"));
    EXPECT_TRUE(validates(R"({"boolean":true,"float":0.5,"int":3,"string":"a","array":[1],"object":{"x":1},
                              "enum":"word","any":null})"));
    EXPECT_TRUE(validates(R"({"boolean":false,"float":3,"int":3.0,"enum":"","any":[{}]})"));
}

TEST(json_validate, refuses_every_type_where_it_is_not_allowed)
{
    const std::string values[] = {"true", "0.5", "3", "\"a\"", "[]", "{}", "null"};
    const struct
    {
        const char *key;
        std::string accepted;
    } fields[] = {
        {"boolean", "true"}, {"float", "0.5 3"}, {"int", "3"},      {"string", "\"a\""},
        {"array", "[]"},     {"object", "{}"},   {"enum", "\"a\""}, {"any", "true 0.5 3 \"a\" [] {} null"},
    };
    for (const auto &field : fields)
    {
        for (const std::string &value : values)
        {
            const bool expected = (" " + field.accepted + " ").find(" " + value + " ") != std::string::npos;
            EXPECT_EQ(validates("{\"" + std::string(field.key) + "\":" + value + "}"), expected)
                << field.key << " " << value;
        }
    }
}

TEST(json_validate, refuses_numbers_out_of_range)
{
    EXPECT_FALSE(validates(R"({"int":2147483648})"));
    EXPECT_FALSE(validates(R"({"int":1.5})"));
    EXPECT_FALSE(validates(R"({"float":1e39})"));
    EXPECT_FALSE(validates(R"({"float":1e400})"));
}

TEST(json_validate, refuses_unknown_and_repeated_members)
{
    EXPECT_FALSE(validates(R"({"unknown":1})"));
    EXPECT_FALSE(validates(R"({"INT":1})"));
    EXPECT_FALSE(validates(R"({"":1})"));
    EXPECT_FALSE(validates(R"({"int":1,"int":1})"));
    EXPECT_FALSE(validates(R"({"int":1,"any":2,"float":3,"int":1})"));
    EXPECT_FALSE(validates(R"({"int":1,"unknown":1})"));
}

TEST(json_validate, refuses_values_that_are_not_objects)
{
    EXPECT_FALSE(json_validate(nullptr, all_types));
    for (const char *text : {"[]", "[1]", "1", "\"int\"", "null", "true"})
    {
        EXPECT_FALSE(validates(text)) << text;
    }
}

TEST(json_validate, refuses_a_member_without_a_name)
{
    const document_t object(cJSON_CreateObject());
    cJSON_AddItemToArray(object.get(), cJSON_CreateNumber(1));
    EXPECT_FALSE(json_validate(object.get(), all_types));
}

TEST(json_validate, refuses_every_member_with_an_empty_table)
{
    constexpr json_field_t none[] = {{nullptr, FIELD_TYPE_NONE}};
    EXPECT_TRUE(json_validate(parse("{}").get(), none));
    EXPECT_FALSE(json_validate(parse(R"({"a":1})").get(), none));
}

TEST(json_validate, refuses_every_value_of_a_field_of_type_none)
{
    constexpr json_field_t odd[] = {{"a", FIELD_TYPE_NONE}, {nullptr, FIELD_TYPE_NONE}};
    EXPECT_FALSE(json_validate(parse(R"({"a":null})").get(), odd));
}

/** Adds one value of each kind to a node. */
bool add_all(cJSON *node)
{
    char text[] = "text";
    const bool added = add_json_int_value(node, "i", -2147483647 - 1) &&
                       add_json_uint32_value(node, "u", 4294967295U) &&
                       add_json_float_value(node, "f", 0.5F) && add_json_bool_value(node, "t", true) &&
                       add_json_bool_value(node, "b", false) && add_json_string_value(node, "s", text);
    text[0] = 'x';
    return added;
}

std::string print(const cJSON *node)
{
    char *text = cJSON_PrintUnformatted(node);
    std::string result = text;
    cJSON_free(text);
    return result;
}

TEST(json_adders, add_members_to_an_object)
{
    const document_t object(cJSON_CreateObject());
    EXPECT_TRUE(add_all(object.get()));
    EXPECT_EQ(print(object.get()),
              R"({"i":-2147483648,"u":4294967295,"f":0.5,"t":true,"b":false,"s":"text"})");
}

TEST(json_adders, make_numbers_like_cjson)
{
    const document_t object(cJSON_CreateObject());
    for (const uint32_t value : {0U, 1U, 2147483646U, 2147483647U, 2147483648U, 4294967295U})
    {
        ASSERT_TRUE(add_json_uint32_value(object.get(), "v", value));
        const document_t expected(cJSON_CreateNumber(value));
        EXPECT_TRUE(cJSON_Compare(object->child, expected.get(), 1)) << value;
        EXPECT_EQ(object->child->valueint, expected->valueint) << value;
        cJSON_DeleteItemFromObjectCaseSensitive(object.get(), "v");
    }
    for (const int value : {INT_MIN, -1, 0, 1, INT_MAX})
    {
        ASSERT_TRUE(add_json_int_value(object.get(), "v", value));
        const document_t expected(cJSON_CreateNumber(value));
        EXPECT_TRUE(cJSON_Compare(object->child, expected.get(), 1)) << value;
        EXPECT_EQ(object->child->valueint, expected->valueint) << value;
        cJSON_DeleteItemFromObjectCaseSensitive(object.get(), "v");
    }
}

TEST(json_adders, append_elements_to_an_array)
{
    const document_t array(cJSON_CreateArray());
    EXPECT_TRUE(add_all(array.get()));
    EXPECT_EQ(print(array.get()), R"([-2147483648,4294967295,0.5,true,false,"text"])");
}

TEST(json_adders, refuse_a_target_that_cannot_contain_values)
{
    const document_t number(cJSON_CreateNumber(1));
    for (cJSON *node : {static_cast<cJSON *>(nullptr), number.get()})
    {
        EXPECT_FALSE(add_json_int_value(node, "k", 1));
        EXPECT_FALSE(add_json_uint32_value(node, "k", 1));
        EXPECT_FALSE(add_json_float_value(node, "k", 1.0F));
        EXPECT_FALSE(add_json_bool_value(node, "k", true));
        EXPECT_FALSE(add_json_string_value(node, "k", "v"));
    }
    EXPECT_EQ(number->child, nullptr);
}

TEST(json_adders, add_null_for_a_float_that_is_not_finite)
{
    const document_t object(cJSON_CreateObject());
    EXPECT_TRUE(add_json_float_value(object.get(), "a", NAN));
    EXPECT_TRUE(add_json_float_value(object.get(), "b", INFINITY));
    EXPECT_EQ(print(object.get()), R"({"a":null,"b":null})");
}

TEST(json_adders, keep_the_float_exactly)
{
    const document_t object(cJSON_CreateObject());
    for (const float value : {0.1F, FLT_MAX, FLT_MIN, 1e-45F, -0.0F, 16777217.0F})
    {
        ASSERT_TRUE(add_json_float_value(object.get(), "v", value));
        float read = 77.0F;
        ASSERT_TRUE(get_json_float_value(object.get(), "v", &read));
        EXPECT_EQ(read, value);
        cJSON_DeleteItemFromObjectCaseSensitive(object.get(), "v");
    }
}

TEST(json_adders, keep_floats_of_every_exponent)
{
    std::mt19937 random(1);
    for (uint32_t high = 0; high < 0x10000; ++high)
    {
        const uint32_t fraction = high % 128 == 0 ? 0 : static_cast<uint32_t>(random()) & 0xFFFFU;
        const auto value = std::bit_cast<float>(high << 16U | fraction);
        const auto list = document_t(cJSON_CreateArray());
        ASSERT_TRUE(add_json_float_value(list.get(), nullptr, value));
        const cJSON *item = list->child;
        ASSERT_EQ(cJSON_IsNumber(item) != 0, std::isfinite(value)) << value;
        const double expected = std::isfinite(value) ? static_cast<double>(value) : 0.0;
        ASSERT_EQ(std::bit_cast<uint64_t>(item->valuedouble), std::bit_cast<uint64_t>(expected)) << value;
    }
}

class json_adders_without_memory : public testing::Test
{
protected:
    void SetUp() override
    {
        fake_memory = {};
        cJSON_Hooks hooks = {zet_integration_mem_alloc, zet_integration_mem_free};
        cJSON_InitHooks(&hooks);
    }

    void TearDown() override
    {
        cJSON_InitHooks(nullptr);
    }
};

TEST_F(json_adders_without_memory, allocate_one_block_for_a_value_and_none_for_its_key)
{
    cJSON *object = cJSON_CreateObject();
    const size_t before = fake_memory.live;
    EXPECT_TRUE(add_json_int_value(object, "a key that is not copied", 1));
    EXPECT_EQ(fake_memory.live, before + 1);
    cJSON_Delete(object);
    EXPECT_EQ(fake_memory.live, 0U);
}

TEST_F(json_adders_without_memory, fail_without_a_leak)
{
    using add_function_t = bool (*)(cJSON *);
    const add_function_t adders[] = {
        [](cJSON *node) { return add_json_int_value(node, "k", 1); },
        [](cJSON *node) { return add_json_uint32_value(node, "k", 1); },
        [](cJSON *node) { return add_json_float_value(node, "k", 1.0F); },
        [](cJSON *node) { return add_json_bool_value(node, "k", true); },
        [](cJSON *node) { return add_json_string_value(node, "k", "v"); },
    };
    for (const bool to_array : {false, true})
    {
        for (const add_function_t add : adders)
        {
            cJSON *node = to_array ? cJSON_CreateArray() : cJSON_CreateObject();
            size_t failures = 0;
            for (fail_allocation(1); !add(node); fail_allocation(failures + 1))
            {
                ++failures;
                EXPECT_EQ(fake_memory.live, 1U);
                EXPECT_EQ(cJSON_GetArraySize(node), 0);
            }
            EXPECT_GE(failures, 1U);
            fail_allocation(0);
            EXPECT_EQ(cJSON_GetArraySize(node), 1);
            cJSON_Delete(node);
            EXPECT_EQ(fake_memory.live, 0U);
        }
    }
}

} // namespace
