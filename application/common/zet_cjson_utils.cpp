/** @file
 * Reading, writing and validating members of JSON documents, on top of cJSON.
 */
#include "zet_cjson_utils.h"

#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>

namespace
{

// Conversions in integers: many processors have no hardware for `double`.

/** Digits of a fraction that are stored, without the first one. */
constexpr uint32_t double_digits = DBL_MANT_DIG - 1;
constexpr uint32_t float_digits = FLT_MANT_DIG - 1;
constexpr uint32_t fewer_digits = double_digits - float_digits;

/** What is added to the stored exponent of a `float` to get that of the same `double`. */
constexpr uint32_t more_exponent = DBL_MAX_EXP - FLT_MAX_EXP;

constexpr uint64_t no_sign = UINT64_MAX >> 1U;

/** Half-way between the largest `float` and the next power of two: numbers from here up round to infinity. */
constexpr uint64_t first_beyond_float = std::bit_cast<uint64_t>(0x1.ffffffp127);

/** Returns a number as a `float`, rounded to the nearest one, ties to even; it does not round to infinity. */
float to_float(double number)
{
    const auto bits = std::bit_cast<uint64_t>(number);
    const auto exponent = static_cast<int32_t>((bits & no_sign) >> double_digits) - int32_t{more_exponent};
    uint64_t digits = (bits & no_sign) - (uint64_t{more_exponent} << double_digits);
    uint32_t dropped = fewer_digits;
    if (exponent <= 0)
    {
        // A subnormal `float` stores the first digit. Any smaller number becomes 0.
        digits = exponent < -FLT_MANT_DIG ? 0U : (bits & (UINT64_MAX >> 12U)) | uint64_t{1} << double_digits;
        dropped += exponent < -FLT_MANT_DIG ? 0U : static_cast<uint32_t>(1 - exponent);
    }
    const uint64_t is_odd = digits >> dropped & 1U;
    const uint64_t rounded = (digits + (uint64_t{1} << (dropped - 1U)) - 1U + is_odd) >> dropped;
    const auto sign = static_cast<uint32_t>((bits & ~no_sign) >> 32U);
    return std::bit_cast<float>(sign | static_cast<uint32_t>(rounded));
}

/** Returns a finite `float` as a `double`. */
double to_double(float number)
{
    constexpr uint32_t subnormal_shift = 24;
    const bool is_subnormal = std::fabs(number) < FLT_MIN;
    const auto bits = std::bit_cast<uint32_t>(is_subnormal ? number * 0x1p24F : number);
    const uint32_t magnitude = bits & (UINT32_MAX >> 1U);
    const uint64_t exponent = magnitude == 0 ? 0U : more_exponent - (is_subnormal ? subnormal_shift : 0U);
    const uint64_t positive = (uint64_t{magnitude} << fewer_digits) + (exponent << double_digits);
    return std::bit_cast<double>(uint64_t{bits ^ magnitude} << 32U | positive);
}

/** Returns a whole number as a `double`. */
double double_of(uint32_t value, bool is_negative)
{
    if (value == 0)
    {
        return 0.0;
    }
    constexpr uint64_t exponent_of_one = 1023;
    const auto shift = static_cast<uint32_t>(std::countl_zero(value));
    // The first of the 53 digits of a fraction is not stored.
    const uint64_t fraction = static_cast<uint64_t>(value << shift << 1U) << 20U;
    const uint64_t exponent = exponent_of_one + 31U - shift;
    return std::bit_cast<double>((is_negative ? uint64_t{1} << 63U : 0U) | exponent << 52U | fraction);
}

/**
 * Reads the value of a number that has no fractional part and fits `int`.
 *
 * @return false when the item is null or not such a number; the value is unchanged then
 */
bool read_int(const cJSON *item, int *value)
{
    // cJSON has dropped the fraction.
    if (!cJSON_IsNumber(item) || zet_double_of(item->valueint) != item->valuedouble)
    {
        return false;
    }
    *value = item->valueint;
    return true;
}

/**
 * Reads the value of a number, rounded to `float`.
 *
 * @return false when the item is null, is not a number or rounds to infinity; the value is unchanged then
 */
bool read_float(const cJSON *item, float *value)
{
    if (!cJSON_IsNumber(item) || (std::bit_cast<uint64_t>(item->valuedouble) & no_sign) >= first_beyond_float)
    {
        return false;
    }
    *value = to_float(item->valuedouble);
    return true;
}

/** Returns whether a value has the type that a table requires. */
bool has_type(const cJSON *item, json_field_type_t type)
{
    int int_value = 0;
    float float_value = 0.0F;
    switch (type)
    {
    case FIELD_TYPE_BOOLEAN:
        return cJSON_IsBool(item) != 0;
    case FIELD_TYPE_FLOAT:
        return read_float(item, &float_value);
    case FIELD_TYPE_INT:
        return read_int(item, &int_value);
    case FIELD_TYPE_STRING:
    case FIELD_TYPE_ENUM:
        return cJSON_IsString(item) != 0;
    case FIELD_TYPE_ARRAY:
        return cJSON_IsArray(item) != 0;
    case FIELD_TYPE_OBJECT:
        return cJSON_IsObject(item) != 0;
    case FIELD_TYPE_ANY:
        return true;
    case FIELD_TYPE_NONE:
        break;
    }
    return false;
}

/** Finds the row of a table that allows a key; null when there is none. */
const json_field_t *find_field(const json_field_t *fields, const char *key)
{
    for (const json_field_t *field = fields; field->name != nullptr; ++field)
    {
        if (std::strcmp(field->name, key) == 0)
        {
            return field;
        }
    }
    return nullptr;
}

/** Returns a number without its fraction, or the nearest int. */
int saturated(float value)
{
    constexpr float limit = 2147483648.0F;
    return value >= limit ? INT_MAX : value <= -limit ? INT_MIN : static_cast<int>(value);
}

/** The bits of an item's type that give its kind; the others say who owns its parts. */
constexpr int type_bits = 0xFF;

/** Links an item to the end of a container. cJSON keeps the last item in the link of the first one. */
void link_item(cJSON *container, cJSON *item)
{
    cJSON *const first = container->child;
    if (first == nullptr)
    {
        container->child = item;
        item->prev = item;
        return;
    }
    cJSON *const last = first->prev;
    last->next = item;
    item->prev = last;
    first->prev = item;
}

/**
 * Adds a new item to an object or an array, which then owns it: like cJSON_AddItemToObjectCS and
 * cJSON_AddItemToArray, in one pass.
 *
 * @param item  the item; null when it could not be created
 * @return true if the item was added. It is freed if the target is not a container, or if the target is an
 *         object and key is null.
 */
inline bool add_item(cJSON *target, const char *key, cJSON *item)
{
    if (item == nullptr)
    {
        return false;
    }
    const int kind = target != nullptr ? target->type & type_bits : cJSON_Invalid;
    if (kind == cJSON_Object && key != nullptr)
    {
        // cJSON does not change a key that it does not own.
        item->string = const_cast<char *>(key);
        item->type |= cJSON_StringIsConst;
    }
    else if (kind != cJSON_Array)
    {
        cJSON_Delete(item);
        return false;
    }
    link_item(target, item);
    return true;
}

/**
 * Adds an item without a text.
 *
 * Unlike one that cJSON creates, it is written only once, and no `double` values are compared or converted,
 * for which many processors have no hardware.
 *
 * @param saturated  the number without its fraction, or the nearest int; 0 if it is not a number
 */
inline bool add_value(cJSON *target, const char *key, int type, double value, int saturated)
{
    auto *const item = static_cast<cJSON *>(cJSON_malloc(sizeof(cJSON)));
    if (item == nullptr)
    {
        return false;
    }
    item->next = nullptr;
    item->prev = nullptr;
    item->child = nullptr;
    item->type = type;
    item->valuestring = nullptr;
    item->valueint = saturated;
    item->valuedouble = value;
    item->string = nullptr;
    return add_item(target, key, item);
}

} // namespace

double zet_double_of(int value)
{
    const uint32_t magnitude = value < 0 ? 0U - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    return double_of(magnitude, value < 0);
}

bool get_json_int_value(const cJSON *node, const char *key, int *value)
{
    return read_int(cJSON_GetObjectItemCaseSensitive(node, key), value);
}

bool get_json_float_value(const cJSON *node, const char *key, float *value)
{
    return read_float(cJSON_GetObjectItemCaseSensitive(node, key), value);
}

bool get_json_bool_value(const cJSON *node, const char *key, bool *value)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(node, key);
    if (!cJSON_IsBool(item))
    {
        return false;
    }
    *value = cJSON_IsTrue(item) != 0;
    return true;
}

bool get_json_string_value(const cJSON *node, const char *key, char **value)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(node, key);
    if (!cJSON_IsString(item))
    {
        return false;
    }
    *value = item->valuestring;
    return true;
}

bool is_json_node(const cJSON *node, const char *key)
{
    return cJSON_GetObjectItemCaseSensitive(node, key) != nullptr;
}

bool json_validate(const cJSON *node, const json_field_t *fields)
{
    if (!cJSON_IsObject(node))
    {
        return false;
    }
    const cJSON *member = nullptr;
    cJSON_ArrayForEach(member, node)
    {
        if (member->string == nullptr)
        {
            return false;
        }
        const json_field_t *field = find_field(fields, member->string);
        if (field == nullptr || !has_type(member, field->type))
        {
            return false;
        }
        // The look-up returns the first of several members with the same name.
        if (cJSON_GetObjectItemCaseSensitive(node, member->string) != member)
        {
            return false;
        }
    }
    return true;
}

bool add_json_int_value(cJSON *object, const char *key, int value)
{
    return add_value(object, key, cJSON_Number, zet_double_of(value), value);
}

bool add_json_uint32_value(cJSON *object, const char *key, uint32_t value)
{
    const int nearest = value < INT_MAX ? static_cast<int>(value) : INT_MAX;
    return add_value(object, key, cJSON_Number, double_of(value, false), nearest);
}

bool add_json_float_value(cJSON *object, const char *key, float value)
{
    // JSON cannot represent numbers that are not finite, and cJSON must not convert them to an integer.
    return std::isfinite(value) ? add_value(object, key, cJSON_Number, to_double(value), saturated(value))
                                : add_value(object, key, cJSON_NULL, 0.0, 0);
}

bool add_json_bool_value(cJSON *object, const char *key, bool value)
{
    return add_value(object, key, value ? cJSON_True : cJSON_False, 0.0, 0);
}

bool add_json_string_value(cJSON *object, const char *key, const char *value)
{
    return add_item(object, key, cJSON_CreateString(value));
}
