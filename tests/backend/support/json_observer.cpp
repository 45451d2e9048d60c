/** @file
 * Wrappers that record the JSON functions that the backend calls.
 *
 * The linker routes every call of a function `x` listed in CMakeLists.txt to `__wrap_x`; `__real_x` is the
 * function itself. A wrapper records calls from the backend and makes them fail if the test requested it. It
 * passes other calls (from test code, or between JSON utilities) on unchanged.
 */
#include <functional>

#include "neighbours.h"
#include "zet_cjson_utils.h"
#include "zet_vantor_server_utils.h"

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): names required by the linker

using namespace backend_tests;

namespace
{

/** Runs a function; if the backend calls it, records the call first. */
template <typename operation_t>
auto observe(std::string_view name, std::initializer_list<std::string> arguments,
             const operation_t &operation)
{
    const bool of_backend = backend_is_running();
    const neighbour_scope_t scope(of_backend ? block_owner_t::json : block_owner_t::test, std::string(name));
    if (of_backend)
    {
        record(call_kind_t::json, name, arguments);
    }
    return operation();
}

/** The same for a function that can fail. On a requested failure it returns 0, false or null. */
template <typename operation_t>
auto observe_fallible(const std::string &name, const char *key, std::initializer_list<std::string> arguments,
                      const operation_t &operation) -> decltype(operation())
{
    const bool of_backend = backend_is_running();
    if (!of_backend)
    {
        return operation();
    }
    const std::string name_and_key = key == nullptr ? name : name + ":" + key;
    const bool by_name = refused(name);
    const bool by_key = key != nullptr && refused(name_and_key);
    record(call_kind_t::json, name, arguments);
    if (by_name || by_key)
    {
        return {};
    }
    const neighbour_scope_t scope(block_owner_t::json, name_and_key);
    return operation();
}

/** Tracks a document that the backend created until it is attached or deleted. */
cJSON *watched(bool of_backend, cJSON *document)
{
    if (of_backend && document != nullptr)
    {
        neighbours().unattached.insert(document);
    }
    return document;
}

cJSON_bool attached(cJSON_bool success, cJSON *item)
{
    if (success != 0)
    {
        neighbours().unattached.erase(item);
    }
    return success;
}

std::string table_text(const json_field_t *fields)
{
    std::string text;
    for (; fields->name != nullptr; ++fields)
    {
        text += std::string(fields->name) + ":" + std::to_string(fields->type) + " ";
    }
    return text + "end:" + std::to_string(fields->type);
}

} // namespace

extern "C" {
bool __real_get_json_int_value(const cJSON *node, const char *key, int *value);
bool __real_get_json_float_value(const cJSON *node, const char *key, float *value);
bool __real_get_json_bool_value(const cJSON *node, const char *key, bool *value);
bool __real_get_json_string_value(const cJSON *node, const char *key, char **value);
bool __real_is_json_node(const cJSON *node, const char *key);
bool __real_json_validate(const cJSON *node, const json_field_t *fields);
bool __real_add_json_int_value(cJSON *object, const char *key, int value);
bool __real_add_json_uint32_value(cJSON *object, const char *key, uint32_t value);
bool __real_add_json_float_value(cJSON *object, const char *key, float value);
bool __real_add_json_bool_value(cJSON *object, const char *key, bool value);
bool __real_add_json_string_value(cJSON *object, const char *key, const char *value);
bool __real_convert_hexstr2uint(char *str, uint8_t *out, size_t size);
void __real_convert_uint2hexstr(uint8_t *data, size_t size, char *out);
void __real_cJSON_InitHooks(cJSON_Hooks *hooks);
cJSON *__real_cJSON_CreateObject(void);
cJSON *__real_cJSON_CreateArray(void);
cJSON_bool __real_cJSON_AddItemToObject(cJSON *object, const char *string, cJSON *item);
cJSON_bool __real_cJSON_AddItemToArray(cJSON *array, cJSON *item);
cJSON *__real_cJSON_AddObjectToObject(cJSON *object, const char *name);
cJSON *__real_cJSON_AddArrayToObject(cJSON *object, const char *name);
cJSON *__real_cJSON_GetObjectItemCaseSensitive(const cJSON *object, const char *string);
int __real_cJSON_GetArraySize(const cJSON *array);
cJSON_bool __real_cJSON_IsObject(const cJSON *item);
void __real_cJSON_Delete(cJSON *item);

bool __wrap_get_json_int_value(const cJSON *node, const char *key, int *value)
{
    return observe("get_json_int_value", {show(key)},
                   [=] { return __real_get_json_int_value(node, key, value); });
}

bool __wrap_get_json_float_value(const cJSON *node, const char *key, float *value)
{
    return observe("get_json_float_value", {show(key)},
                   [=] { return __real_get_json_float_value(node, key, value); });
}

bool __wrap_get_json_bool_value(const cJSON *node, const char *key, bool *value)
{
    return observe("get_json_bool_value", {show(key)},
                   [=] { return __real_get_json_bool_value(node, key, value); });
}

bool __wrap_get_json_string_value(const cJSON *node, const char *key, char **value)
{
    return observe("get_json_string_value", {show(key)},
                   [=] { return __real_get_json_string_value(node, key, value); });
}

bool __wrap_is_json_node(const cJSON *node, const char *key)
{
    return observe("is_json_node", {show(key)}, [=] { return __real_is_json_node(node, key); });
}

bool __wrap_json_validate(const cJSON *node, const json_field_t *fields)
{
    return observe("json_validate", {table_text(fields)}, [=] { return __real_json_validate(node, fields); });
}

bool __wrap_add_json_int_value(cJSON *object, const char *key, int value)
{
    return observe_fallible("add_json_int_value", key, {show(key), show(value)},
                            [=] { return __real_add_json_int_value(object, key, value); });
}

bool __wrap_add_json_uint32_value(cJSON *object, const char *key, uint32_t value)
{
    return observe_fallible("add_json_uint32_value", key, {show(key), show(value)},
                            [=] { return __real_add_json_uint32_value(object, key, value); });
}

bool __wrap_add_json_float_value(cJSON *object, const char *key, float value)
{
    return observe_fallible("add_json_float_value", key, {show(key), show(value)},
                            [=] { return __real_add_json_float_value(object, key, value); });
}

bool __wrap_add_json_bool_value(cJSON *object, const char *key, bool value)
{
    return observe_fallible("add_json_bool_value", key, {show(key), show(value)},
                            [=] { return __real_add_json_bool_value(object, key, value); });
}

bool __wrap_add_json_string_value(cJSON *object, const char *key, const char *value)
{
    return observe_fallible("add_json_string_value", key, {show(key), show(value)},
                            [=] { return __real_add_json_string_value(object, key, value); });
}

bool __wrap_convert_hexstr2uint(char *str, uint8_t *out, size_t size)
{
    return observe_fallible("convert_hexstr2uint", nullptr, {show(size)},
                            [=] { return __real_convert_hexstr2uint(str, out, size); });
}

void __wrap_convert_uint2hexstr(uint8_t *data, size_t size, char *out)
{
    observe("convert_uint2hexstr", {show(size)}, [=] { __real_convert_uint2hexstr(data, size, out); });
}

void __wrap_cJSON_InitHooks(cJSON_Hooks *hooks)
{
    neighbours().hooks = *hooks;
    observe("cJSON_InitHooks", {}, [=] { __real_cJSON_InitHooks(hooks); });
}

cJSON *__wrap_cJSON_CreateObject(void)
{
    const bool of_backend = backend_is_running();
    return watched(of_backend, observe_fallible("cJSON_CreateObject", nullptr, {},
                                                [] { return __real_cJSON_CreateObject(); }));
}

cJSON *__wrap_cJSON_CreateArray(void)
{
    const bool of_backend = backend_is_running();
    return watched(of_backend, observe_fallible("cJSON_CreateArray", nullptr, {},
                                                [] { return __real_cJSON_CreateArray(); }));
}

cJSON_bool __wrap_cJSON_AddItemToObject(cJSON *object, const char *string, cJSON *item)
{
    return attached(observe_fallible("cJSON_AddItemToObject", string, {show(string)},
                                     [=] { return __real_cJSON_AddItemToObject(object, string, item); }),
                    item);
}

cJSON_bool __wrap_cJSON_AddItemToArray(cJSON *array, cJSON *item)
{
    return attached(observe_fallible("cJSON_AddItemToArray", nullptr, {},
                                     [=] { return __real_cJSON_AddItemToArray(array, item); }),
                    item);
}

cJSON *__wrap_cJSON_AddObjectToObject(cJSON *object, const char *name)
{
    return observe_fallible("cJSON_AddObjectToObject", name, {show(name)},
                            [=] { return __real_cJSON_AddObjectToObject(object, name); });
}

cJSON *__wrap_cJSON_AddArrayToObject(cJSON *object, const char *name)
{
    return observe_fallible("cJSON_AddArrayToObject", name, {show(name)},
                            [=] { return __real_cJSON_AddArrayToObject(object, name); });
}

cJSON *__wrap_cJSON_GetObjectItemCaseSensitive(const cJSON *object, const char *string)
{
    return observe("cJSON_GetObjectItemCaseSensitive", {show(string)},
                   [=] { return __real_cJSON_GetObjectItemCaseSensitive(object, string); });
}

int __wrap_cJSON_GetArraySize(const cJSON *array)
{
    return observe("cJSON_GetArraySize", {}, [=] { return __real_cJSON_GetArraySize(array); });
}

cJSON_bool __wrap_cJSON_IsObject(const cJSON *item)
{
    return observe("cJSON_IsObject", {}, [=] { return __real_cJSON_IsObject(item); });
}

void __wrap_cJSON_Delete(cJSON *item)
{
    neighbours().unattached.erase(item);
    observe("cJSON_Delete", {}, [=] { __real_cJSON_Delete(item); });
}
}

// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
