/** @file
 * Reads scene files.
 */
#include <cjson/cJSON.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/number_text.h"
#include "scene/scene_fields.h"
#include "zet_simulator_scene_json.h"

namespace
{

using namespace zet_simulator;

/** Reports that an entry has a key that is not allowed, and which keys are. */
bool refuse_key(const scene_section &section, uint32_t index, const char *key, const message &error)
{
    refuse(error, "%s[%lu] has an unknown or repeated key \"%.32s\"; the keys are", section.name,
           static_cast<unsigned long>(index), key);
    for (uint32_t i = 0; i < section.field_count; ++i)
    {
        append(error, i == 0U ? " " : ", ");
        append(error, section.fields[i].name);
    }
    return false;
}

/** Reads the name of a kind of fault. */
bool read_fault_kind(const cJSON *item, uint32_t index, unsigned char *entry, const scene_field &field,
                     const message &error)
{
    for (uint32_t kind = 0; cJSON_IsString(item) && kind < scene_fault_word_count; ++kind)
    {
        if (std::strcmp(item->valuestring, scene_fault_words[kind]) == 0)
        {
            scene_field_set(entry, field, kind);
            return true;
        }
    }
    refuse(error, "faults[%lu].kind must be one of", static_cast<unsigned long>(index));
    for (const char *word : scene_fault_words)
    {
        append(error, " \"");
        append(error, word);
        append(error, "\"");
    }
    return false;
}

/** Reports what kind of number a field must be. */
bool refuse_number(const scene_section &section, uint32_t index, const scene_field &field,
                   const char *expected, const message &error)
{
    return refuse(error, "%s[%lu].%s must be %s from %s to %s", section.name,
                  static_cast<unsigned long>(index), field.name, expected, text_of(field.lowest).text,
                  text_of(field.highest).text);
}

/** Reads a number. */
bool read_number(const scene_section &section, uint32_t index, const cJSON *item, unsigned char *entry,
                 const scene_field &field, const message &error)
{
    if (!cJSON_IsNumber(item))
    {
        return refuse_number(section, index, field, "a number", error);
    }
    const double value = item->valuedouble;
    if (!scene_value_is_valid(section, index, field, value, error))
    {
        return false;
    }
    if (field.type == field_type::whole && value != static_cast<double>(static_cast<uint32_t>(value)))
    {
        return refuse_number(section, index, field, "a whole number", error);
    }
    scene_field_set(entry, field, value);
    return true;
}

/** Finds the field with the name of a key, unless it was already given; null when there is none. */
const scene_field *find_field(const scene_section &section, const char *key, uint32_t given)
{
    for (uint32_t i = 0; i < section.field_count; ++i)
    {
        if (std::strcmp(section.fields[i].name, key) == 0 && (given & (1U << i)) == 0U)
        {
            return &section.fields[i];
        }
    }
    return nullptr;
}

/** Checks that every required field was given. */
bool has_required_fields(const scene_section &section, uint32_t index, uint32_t given, const message &error)
{
    for (uint32_t i = 0; i < section.field_count; ++i)
    {
        if (section.fields[i].required && (given & (1U << i)) == 0U)
        {
            return refuse(error, "%s[%lu] needs the key \"%s\"", section.name,
                          static_cast<unsigned long>(index), section.fields[i].name);
        }
    }
    return true;
}

/** Returns whether an entry has a key. */
bool has_key(const scene_section &section, uint32_t given, const char *key)
{
    const scene_field *field = find_field(section, key, 0);
    return field != nullptr && (given & (1U << static_cast<uint32_t>(field - section.fields))) != 0U;
}

/** Checks that the bounds of a target are both given, or none. */
bool has_both_bounds_or_none(const scene_section &section, uint32_t index, uint32_t given,
                             const message &error)
{
    if (has_key(section, given, "nearest_m") == has_key(section, given, "farthest_m"))
    {
        return true;
    }
    return refuse(error, "%s[%lu] has only one of the keys nearest_m and farthest_m; give both or none",
                  section.name, static_cast<unsigned long>(index));
}

/** Reads one entry of a list. */
bool read_entry(const scene_section &section, uint32_t index, const cJSON *object, unsigned char *entry,
                const message &error)
{
    if (!cJSON_IsObject(object))
    {
        return refuse(error, "%s[%lu] must be an object", section.name, static_cast<unsigned long>(index));
    }
    uint32_t given = 0;
    for (const cJSON *item = object->child; item != nullptr; item = item->next)
    {
        const scene_field *field = find_field(section, item->string, given);
        if (field == nullptr)
        {
            return refuse_key(section, index, item->string, error);
        }
        given |= 1U << static_cast<uint32_t>(field - section.fields);
        const bool read = field->type == field_type::fault
                              ? read_fault_kind(item, index, entry, *field, error)
                              : read_number(section, index, item, entry, *field, error);
        if (!read)
        {
            return false;
        }
    }
    return has_required_fields(section, index, given, error) &&
           has_both_bounds_or_none(section, index, given, error);
}

/** Reads one list. */
bool read_section(const scene_section &section, const cJSON *array, zet_simulator_scene_t &scene,
                  const message &error)
{
    if (!cJSON_IsArray(array))
    {
        return refuse(error, "%s must be an array", section.name);
    }
    uint32_t count = 0;
    for (const cJSON *object = array->child; object != nullptr; object = object->next)
    {
        if (count == section.capacity)
        {
            return refuse(error, "%s must have at most %u entries", section.name,
                          static_cast<unsigned>(section.capacity));
        }
        if (!read_entry(section, count, object, scene_entry(scene, section, count), error))
        {
            return false;
        }
        ++count;
    }
    reinterpret_cast<unsigned char *>(&scene)[section.count_offset] = static_cast<unsigned char>(count);
    return true;
}

/** Reads one member of the document: a list, or the description, which is ignored. */
bool read_member(const cJSON *item, uint32_t &given, zet_simulator_scene_t &scene, const message &error)
{
    if (std::strcmp(item->string, "description") == 0 && cJSON_IsString(item))
    {
        return true;
    }
    for (uint32_t i = 0; i < scene_section_count; ++i)
    {
        if (std::strcmp(item->string, scene_sections[i].name) == 0 && (given & (1U << i)) == 0U)
        {
            given |= 1U << i;
            return read_section(scene_sections[i], item, scene, error);
        }
    }
    return refuse(
        error,
        "the scene has an unknown or repeated key \"%.32s\"; the keys are description (a string) and the "
        "arrays targets, interferers, temperatures, faults",
        item->string);
}

/** Reports a place in a text that is not JSON, by line and column. */
bool refuse_text(const char *text, const char *place, const message &error)
{
    unsigned long line = 1;
    unsigned long column = 1;
    for (; text < place; ++text)
    {
        const auto byte = static_cast<unsigned char>(*text);
        const bool continues_character = (byte & 0xC0U) == 0x80U;
        column = byte == '\n' ? 1U : column + (continues_character ? 0U : 1U);
        line += byte == '\n' ? 1U : 0U;
    }
    return refuse(error, "the scene is not JSON; the error is at or before line %lu, column %lu", line,
                  column);
}

/** Reads the document. */
bool read_document(const cJSON *document, zet_simulator_scene_t &scene, const message &error)
{
    if (!cJSON_IsObject(document))
    {
        return refuse(error, "the scene must be a JSON object");
    }
    uint32_t given = 0;
    for (const cJSON *item = document->child; item != nullptr; item = item->next)
    {
        if (!read_member(item, given, scene, error))
        {
            return false;
        }
    }
    return zet_simulator_scene_is_valid(&scene, error.text, error.size);
}

/** Adds a number to a text: the shortest one that is read as the same value. */
void append_number(const message &text, double value, field_type type)
{
    char digits[32];
    const int most_digits = 9;
    for (int precision = 6; precision <= most_digits; ++precision)
    {
        static_cast<void>(std::snprintf(digits, sizeof(digits), "%.*g", precision, value));
        if (type == field_type::real ? std::strtof(digits, nullptr) == static_cast<float>(value)
                                     : std::strtod(digits, nullptr) == value)
        {
            break;
        }
    }
    append(text, digits);
}

/** Adds a field of an entry to a text. */
void append_field(const message &text, const scene_field &field, double value, const char *separator)
{
    append(text, separator);
    append(text, "\"");
    append(text, field.name);
    append(text, "\":");
    if (field.type == field_type::fault)
    {
        append(text, "\"");
        append(text, scene_fault_words[static_cast<uint32_t>(value)]);
        append(text, "\"");
    }
    else
    {
        append_number(text, value, field.type);
    }
}

/** Adds an entry of a list to a text. */
void append_entry(const message &text, const scene_section &section, const unsigned char *entry)
{
    const char *separator = "{";
    for (uint32_t i = 0; i < section.field_count; ++i)
    {
        const scene_field &field = section.fields[i];
        const double value = scene_field_get(entry, field);
        if (field.required || value != 0.0)
        {
            append_field(text, field, value, separator);
            separator = ",";
        }
    }
    append(text, "}");
}

} // namespace

bool zet_simulator_scene_from_json(const char *text, zet_simulator_scene_t *scene, char *error,
                                   size_t error_size)
{
    const char *end = nullptr;
    cJSON *document = cJSON_ParseWithOpts(text, &end, 1);
    if (document == nullptr)
    {
        return refuse_text(text, end, {error, error_size});
    }
    std::memset(scene, 0, sizeof(*scene));
    const bool valid = read_document(document, *scene, {error, error_size});
    cJSON_Delete(document);
    return valid;
}

void zet_simulator_scene_to_json(const zet_simulator_scene_t *scene, char *text)
{
    const message message = {text, ZET_SIMULATOR_SCENE_TEXT_SIZE};
    const auto *bytes = reinterpret_cast<const unsigned char *>(scene);
    text[0] = '\0';
    const char *section_separator = "{\"";
    for (const scene_section &section : scene_sections)
    {
        append(message, section_separator);
        append(message, section.name);
        append(message, "\":[");
        const uint32_t count = bytes[section.count_offset];
        for (uint32_t index = 0; index < count; ++index)
        {
            append(message, index > 0U ? "," : "");
            append_entry(message, section, bytes + section.entries_offset + index * section.entry_size);
        }
        section_separator = "],\"";
    }
    append(message, "]}");
}
