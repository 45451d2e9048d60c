/** @file
 * Reading, writing and validating members of JSON documents.
 *
 * Keys are looked up exactly, letter case included. A getter that returns false leaves its out-argument
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

/** JSON type that a member must have. */
ZET_BYTE_ENUM(json_field_type_t){
    FIELD_TYPE_BOOLEAN = 0, /**< true or false */
    FIELD_TYPE_FLOAT = 1,   /**< a number within the range of `float` */
    FIELD_TYPE_INT = 2,     /**< a number without fractional part within the range of `int` */
    FIELD_TYPE_STRING = 3,  /**< a string */
    FIELD_TYPE_ARRAY = 4,   /**< an array */
    FIELD_TYPE_OBJECT = 5,  /**< an object */
    FIELD_TYPE_ENUM = 6,    /**< a string; its words are checked by whoever reads it */
    FIELD_TYPE_ANY = 7,     /**< any value */
    FIELD_TYPE_NONE = 8,    /**< closes a table */
};

/** One row of a table of allowed members. The table ends with a row of {null, FIELD_TYPE_NONE}. */
typedef struct
{
    const char *name;       /**< key of the member */
    json_field_type_t type; /**< type that its value must have */
} json_field_t;

/**
 * Reads an integer member.
 *
 * @param node   object that holds the member; null is allowed
 * @param key    key of the member
 * @param value  receives the number
 * @return false when the member is absent, no number, has a fractional part or does not fit `int`
 */
bool get_json_int_value(const cJSON *node, const char *key, int *value);

/**
 * Reads a number member.
 *
 * @param node   object that holds the member; null is allowed
 * @param key    key of the member
 * @param value  receives the number, rounded to `float`
 * @return false when the member is absent, no number or beyond the range of `float`
 */
bool get_json_float_value(const cJSON *node, const char *key, float *value);

/**
 * Reads a boolean member.
 *
 * @param node   object that holds the member; null is allowed
 * @param key    key of the member
 * @param value  receives true or false
 * @return false when the member is absent or no boolean
 */
bool get_json_bool_value(const cJSON *node, const char *key, bool *value);

/**
 * Reads a string member.
 *
 * @param node   object that holds the member; null is allowed
 * @param key    key of the member
 * @param value  receives a pointer into the document, valid while the document lives and not to be freed
 * @return false when the member is absent or no string
 */
bool get_json_string_value(const cJSON *node, const char *key, char **value);

/**
 * Tells whether a member exists, of whatever type.
 *
 * @param node  object that may hold the member; null is allowed
 * @param key   key of the member
 */
bool is_json_node(const cJSON *node, const char *key);

/**
 * Holds an object against a table of allowed members.
 *
 * @param node    the value to judge; null is allowed
 * @param fields  the table
 * @return true when @p node is an object whose every member stands in the table, has the type that the
 *         table gives and occurs once; no member is required
 */
bool json_validate(const cJSON *node, const json_field_t *fields);

/**
 * Adds a number to an object, or appends it to an array (the key is then not printed).
 *
 * @param object  the object or array; null makes the call fail
 * @param key     key of the new member. It is not copied, which would cost as much memory and time as the
 *                value: it must be a literal, or live at least as long as the document
 * @param value   the number
 * @return false when memory is exhausted; nothing is added then
 */
bool add_json_int_value(cJSON *object, const char *key, int value);

/** The same as add_json_int_value with the full range of an unsigned value. */
bool add_json_uint32_value(cJSON *object, const char *key, uint32_t value);

/** The same as add_json_int_value with a single-precision number. */
bool add_json_float_value(cJSON *object, const char *key, float value);

/** The same as add_json_int_value with true or false. */
bool add_json_bool_value(cJSON *object, const char *key, bool value);

/** The same as add_json_int_value with a string, which is copied. */
bool add_json_string_value(cJSON *object, const char *key, const char *value);

#ifdef __cplusplus
}
#endif

#endif
