/** @file
 * Reading, writing and validating members of JSON documents.
 *
 * Keys must match exactly, including their case. A getter that returns false leaves its out-argument
 * unchanged, so a default can be set before reading.
 */
#ifndef ZET_CJSON_UTILS_H
#define ZET_CJSON_UTILS_H

#include <stdbool.h>
#include <stdint.h>

#include <cjson/cJSON.h>

#include "zet_definitions_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Returns an integer as a `double`. Uses integer arithmetic: many processors have no hardware for `double`.
 */
double zet_double_of(int value);

/** JSON type that a member must have. */
ZET_BYTE_ENUM(json_field_type_t){
    FIELD_TYPE_BOOLEAN = 0, /**< true or false */
    FIELD_TYPE_FLOAT = 1,   /**< a number within the range of `float` */
    FIELD_TYPE_INT = 2,     /**< a number without fractional part, within the range of `int` */
    FIELD_TYPE_STRING = 3,  /**< a string */
    FIELD_TYPE_ARRAY = 4,   /**< an array */
    FIELD_TYPE_OBJECT = 5,  /**< an object */
    FIELD_TYPE_ENUM = 6,    /**< a string; the reader checks its words */
    FIELD_TYPE_ANY = 7,     /**< any value */
    FIELD_TYPE_NONE = 8,    /**< ends a table */
};

/** One row of a table of allowed members. The last row of the table is {null, FIELD_TYPE_NONE}. */
typedef struct
{
    const char *name;       /**< key of the member */
    json_field_type_t type; /**< type that its value must have */
} json_field_t;

/**
 * Reads an integer member.
 *
 * @param node   object that contains the member; null is allowed
 * @param key    key of the member
 * @param value  receives the number
 * @return false when the member is absent, is not a number, has a fractional part or does not fit `int`
 */
bool get_json_int_value(const cJSON *node, const char *key, int *value);

/**
 * Reads a number member.
 *
 * @param node   object that contains the member; null is allowed
 * @param key    key of the member
 * @param value  receives the number, rounded to `float`
 * @return false when the member is absent, is not a number or is outside the range of `float`
 */
bool get_json_float_value(const cJSON *node, const char *key, float *value);

/**
 * Reads a boolean member.
 *
 * @param node   object that contains the member; null is allowed
 * @param key    key of the member
 * @param value  receives true or false
 * @return false when the member is absent or not a boolean
 */
bool get_json_bool_value(const cJSON *node, const char *key, bool *value);

/**
 * Reads a string member.
 *
 * @param node   object that contains the member; null is allowed
 * @param key    key of the member
 * @param value  receives a pointer into the document, valid as long as the document; do not free it
 * @return false when the member is absent or not a string
 */
bool get_json_string_value(const cJSON *node, const char *key, char **value);

/**
 * Returns whether a member exists, of any type.
 *
 * @param node  object that may contain the member; null is allowed
 * @param key   key of the member
 */
bool is_json_node(const cJSON *node, const char *key);

/**
 * Checks an object against a table of allowed members.
 *
 * @param node    the value to check; null is allowed
 * @param fields  the table
 * @return true when @p node is an object and each of its members is listed in the table, has the type
 *         given there and occurs once; no member is required
 */
bool json_validate(const cJSON *node, const json_field_t *fields);

/**
 * Adds a number to an object, or appends it to an array (the key is not printed then).
 *
 * @param object  the object or array; null makes the call fail
 * @param key     key of the new member. It is not copied, because a copy would cost as much memory and time
 *                as the value: it must be a literal, or live at least as long as the document
 * @param value   the number
 * @return false when memory is exhausted; nothing is added then
 */
bool add_json_int_value(cJSON *object, const char *key, int value);

/** Same as add_json_int_value, for an unsigned 32-bit number. */
bool add_json_uint32_value(cJSON *object, const char *key, uint32_t value);

/** Same as add_json_int_value, for a single-precision number; one that is not finite becomes null. */
bool add_json_float_value(cJSON *object, const char *key, float value);

/** Same as add_json_int_value, for true or false. */
bool add_json_bool_value(cJSON *object, const char *key, bool value);

/** Same as add_json_int_value, for a string, which is copied. */
bool add_json_string_value(cJSON *object, const char *key, const char *value);

#ifdef __cplusplus
}
#endif

#endif
