/** @file
 * Reads the fields of an entry of a scene.
 */
#include "scene/scene_reading.h"

#include <cstring>

#include "common/number_text.h"
#include "scene/bodies/bodies.h"

namespace
{

using namespace zet_simulator;

/** Words that a field can have as its value. */
struct word_list
{
    const char *const *words;
    uint32_t count;
};

/** Returns the words of a field; none if its value is a number. */
word_list words_of(const scene_field &field)
{
    switch (field.type)
    {
    case field_type::fault:
        return {scene_fault_words, scene_fault_word_count};
    case field_type::fluctuation:
        return {scene_fluctuation_words, scene_fluctuation_word_count};
    case field_type::body:
        return {body_words, body_kind_count};
    case field_type::real:
    case field_type::whole:
        break;
    }
    return {nullptr, 0};
}

/** Adds to a message what the value of a field must be. */
void append_expected(const message &text, const scene_field &field)
{
    const word_list list = words_of(field);
    for (uint32_t i = 0; i < list.count; ++i)
    {
        append(text, "%s\"%s\"", i == 0U ? "one of " : ", ", list.words[i]);
    }
    if (list.count == 0U)
    {
        append(text, "a %snumber from %s to %s", field.type == field_type::whole ? "whole " : "",
               text_of(static_cast<double>(field.lowest)).text,
               text_of(static_cast<double>(field.highest)).text);
    }
}

/** Reports a value that a field must not have. */
bool refuse_value(scene_reading &reading, const scene_entry_reading &entry, const scene_field &field,
                  const cJSON *item)
{
    refuse_at(reading.report, entry.place, field.name, " is %s, but must be ", text_of_item(item).text);
    append_expected(reading.report.text, field);
    return false;
}

/** Reads a field of which the value is one of some words, stored as their number. */
bool read_word(scene_reading &reading, const scene_entry_reading &entry, const scene_field &field,
               const cJSON *item)
{
    const word_list list = words_of(field);
    for (uint32_t i = 0; cJSON_IsString(item) && i < list.count; ++i)
    {
        if (std::strcmp(item->valuestring, list.words[i]) == 0)
        {
            scene_field_set(entry.record, field, i);
            return true;
        }
    }
    return refuse_value(reading, entry, field, item);
}

/** Reads a number. */
bool read_number(scene_reading &reading, const scene_entry_reading &entry, const scene_field &field,
                 const cJSON *item)
{
    if (!cJSON_IsNumber(item))
    {
        return refuse_value(reading, entry, field, item);
    }
    const double value = item->valuedouble;
    if (!scene_value_is_valid(entry.place, field, value, reading.report))
    {
        return false;
    }
    if (field.type == field_type::whole && value != static_cast<double>(static_cast<uint32_t>(value)))
    {
        return refuse_value(reading, entry, field, item);
    }
    scene_field_set(entry.record, field, value);
    const bool is_sensor = std::strcmp(field.name, "sensor") == 0 && reading.source.sensor_count != 0U;
    return !is_sensor || scene_sensor_is_valid(entry.place, static_cast<uint32_t>(value),
                                               reading.source.sensor_count, reading.report);
}

/** Reads the value of a field. */
bool read_field(scene_reading &reading, const scene_entry_reading &entry, const scene_field &field,
                const cJSON *item)
{
    return words_of(field).count > 0U ? read_word(reading, entry, field, item)
                                      : read_number(reading, entry, field, item);
}

/** Finds the field with the name of a key; null when there is none. */
const scene_field *find_field(const scene_section &section, const char *key)
{
    for (uint32_t i = 0; i < section.field_count; ++i)
    {
        if (std::strcmp(section.fields[i].name, key) == 0)
        {
            return &section.fields[i];
        }
    }
    return nullptr;
}

/** Reports that an entry has a key that is not allowed, and which keys are. */
bool refuse_key(scene_reading &reading, const scene_entry_reading &entry, const cJSON *item)
{
    const message &text = reading.report.text;
    reading.wrong_key = item;
    refuse_at(reading.report, entry.place, nullptr, " has the unknown key %s; the keys are ",
              text_quoted(item->string).text);
    for (uint32_t i = 0; i < entry.section.field_count; ++i)
    {
        append(text, "%s%s", i == 0U ? "" : ", ", entry.section.fields[i].name);
    }
    for (const char *list : scene_target_keys)
    {
        append(text, "%s%s", is_target(entry.section) ? ", " : "", is_target(entry.section) ? list : "");
    }
    return false;
}

/** Returns whether a key of an entry is that of a list of a target, which is read elsewhere. */
bool is_read_elsewhere(const scene_entry_reading &entry, const char *key)
{
    bool is_known = false;
    for (const char *each : scene_target_keys)
    {
        is_known |= std::strcmp(each, key) == 0;
    }
    return is_known && is_target(entry.section);
}

/** Reads one member of an entry. */
bool read_member(scene_reading &reading, const scene_entry_reading &entry, const cJSON *object,
                 const cJSON *item)
{
    const scene_field *field = find_field(entry.section, item->string);
    if (field == nullptr && !is_read_elsewhere(entry, item->string))
    {
        return refuse_key(reading, entry, item);
    }
    if (is_repeated(object, item))
    {
        return refuse_repeated(reading, entry.place, item);
    }
    return field == nullptr || read_field(reading, entry, *field, item);
}

/** Finds what is wrong, or the nearest object or array around it that is in the document. */
const cJSON *find_item(const cJSON *document, const scene_report &report)
{
    const cJSON *found = document;
    const auto enter = [&found](const cJSON *child) {
        found = child != nullptr ? child : found;
        return child != nullptr;
    };
    const auto enter_list = [&enter, &found](const char *list, uint32_t index) {
        return list == nullptr ||
               (enter(cJSON_GetObjectItemCaseSensitive(found, list)) &&
                (index == no_index || enter(cJSON_GetArrayItem(found, static_cast<int>(index)))));
    };
    if (enter_list(report.place.list, report.place.index) &&
        enter_list(report.place.inner, report.place.inner_index) && report.key != nullptr)
    {
        enter(cJSON_GetObjectItemCaseSensitive(found, report.key));
    }
    return found;
}

/** Counts the items of a document before a wanted one; returns whether it was there. */
bool count_before(const cJSON *item, const cJSON *wanted, uint32_t &count)
{
    if (item == wanted)
    {
        return true;
    }
    ++count;
    for (const cJSON *child = item->child; child != nullptr; child = child->next)
    {
        if (count_before(child, wanted, count))
        {
            return true;
        }
    }
    return false;
}

} // namespace

namespace zet_simulator
{

text_excerpt text_of_item(const cJSON *item)
{
    text_excerpt text = {};
    if (cJSON_IsString(item))
    {
        return text_quoted(item->valuestring);
    }
    const message whole = {text.text, sizeof(text.text)};
    if (cJSON_IsNumber(item))
    {
        refuse(whole, "%s", text_of(item->valuedouble).text);
    }
    else if (cJSON_IsBool(item) || cJSON_IsNull(item))
    {
        refuse(whole, "%s", cJSON_IsNull(item) ? "null" : cJSON_IsTrue(item) ? "true" : "false");
    }
    else
    {
        refuse(whole, "%s", cJSON_IsArray(item) ? "an array" : "an object");
    }
    return text;
}

bool refuse_repeated(scene_reading &reading, const scene_place &place, const cJSON *item)
{
    reading.wrong_key = item;
    return refuse_at(reading.report, place, nullptr, " has the key %s twice, but must have it once",
                     text_quoted(item->string).text);
}

bool refuse_type(scene_reading &reading, const scene_place &place, const char *key, const cJSON *item,
                 const char *expected)
{
    return refuse_at(reading.report, place, key, " is %s, but must be %s", text_of_item(item).text, expected);
}

bool read_required(scene_reading &reading, const scene_entry_reading &entry, const cJSON *object,
                   const char *key)
{
    const scene_field &field = *find_field(entry.section, key);
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    if (item == nullptr)
    {
        refuse_at(reading.report, entry.place, nullptr, " has no key \"%s\", but must have it: ", key);
        append_expected(reading.report.text, field);
        return false;
    }
    return read_field(reading, entry, field, item);
}

bool read_fields(scene_reading &reading, const scene_entry_reading &entry, const cJSON *object)
{
    if (!cJSON_IsObject(object))
    {
        return refuse_type(reading, entry.place, nullptr, object, "an object");
    }
    for (const cJSON *item = object->child; item != nullptr; item = item->next)
    {
        if (!read_member(reading, entry, object, item))
        {
            return false;
        }
    }
    for (uint32_t i = 0; i < entry.section.field_count; ++i)
    {
        const scene_field &field = entry.section.fields[i];
        if (field.required && !read_required(reading, entry, object, field.name))
        {
            return false;
        }
    }
    return true;
}

void add_position(const scene_reading &reading, const cJSON *document)
{
    const bool is_key = reading.wrong_key != nullptr;
    uint32_t number = 0;
    count_before(document, is_key ? reading.wrong_key : find_item(document, reading.report), number);
    const std::string_view text = {reading.source.text, reading.source.size};
    const json_value_place place = json_text_find(text, number);
    append_position(reading.report.text, text, is_key ? place.key : place.value);
}

} // namespace zet_simulator
