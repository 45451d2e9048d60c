/** @file
 * Reads scene files.
 */
#include <cjson/cJSON.h>

#include <cstring>

#include "common/number_text.h"
#include "scene/bodies/bodies.h"
#include "scene/scene_fields.h"
#include "zet_simulator_scene_json.h"

namespace
{

using namespace zet_simulator;

/** An entry of a list that is being read. */
struct entry
{
    const char *owner; /**< the entry that contains the list, and a point; empty for a list of the scene */
    const scene_section &section;
    uint32_t index;
    unsigned char *record;
};

const scene_section &scene_targets = scene_sections[0];

/** Returns whether a key of a target is that of a list. */
bool is_list_of_target(const char *key)
{
    return std::strcmp(key, scene_oscillations.name) == 0 || std::strcmp(key, scene_keyframes.name) == 0;
}

/** Fills a message about an entry: its place, then text. */
bool refuse_entry(const entry &entry, const char *fault, const message &error)
{
    refuse(error, "%s%s[%lu]", entry.owner, entry.section.name, static_cast<unsigned long>(entry.index));
    append(error, fault);
    return false;
}

/** Reports that an entry has a key that is not allowed, and which keys are. */
bool refuse_key(const entry &entry, const char *key, const message &error)
{
    refuse(error, "%s%s[%lu] has an unknown or repeated key \"%.32s\"; the keys are", entry.owner,
           entry.section.name, static_cast<unsigned long>(entry.index), key);
    for (uint32_t i = 0; i < entry.section.field_count; ++i)
    {
        append(error, i == 0U ? " " : ", ");
        append(error, entry.section.fields[i].name);
    }
    if (&entry.section == &scene_targets)
    {
        append(error, ", oscillations, track");
    }
    return false;
}

/** Reads a field of which the value is one of some words, stored as their number. */
template <size_t count>
bool read_word(const entry &entry, const cJSON *item, const scene_field &field,
               const char *const (&words)[count], const message &error)
{
    for (uint32_t i = 0; cJSON_IsString(item) && i < count; ++i)
    {
        if (std::strcmp(item->valuestring, words[i]) == 0)
        {
            scene_field_set(entry.record, field, i);
            return true;
        }
    }
    refuse(error, "%s%s[%lu].%s must be one of", entry.owner, entry.section.name,
           static_cast<unsigned long>(entry.index), field.name);
    for (const char *word : words)
    {
        append(error, " \"");
        append(error, word);
        append(error, "\"");
    }
    return false;
}

/** Reports what kind of number a field must be. */
bool refuse_number(const entry &entry, const scene_field &field, const char *expected, const message &error)
{
    return refuse(error, "%s%s[%lu].%s must be %s from %s to %s", entry.owner, entry.section.name,
                  static_cast<unsigned long>(entry.index), field.name, expected, text_of(field.lowest).text,
                  text_of(field.highest).text);
}

/** Reads a number. */
bool read_number(const entry &entry, const cJSON *item, const scene_field &field, const message &error)
{
    if (!cJSON_IsNumber(item))
    {
        return refuse_number(entry, field, "a number", error);
    }
    const double value = item->valuedouble;
    if (!scene_value_is_valid(entry.owner, entry.section, entry.index, field, value, error))
    {
        return false;
    }
    if (field.type == field_type::whole && value != static_cast<double>(static_cast<uint32_t>(value)))
    {
        return refuse_number(entry, field, "a whole number", error);
    }
    scene_field_set(entry.record, field, value);
    return true;
}

/** Reads the value of a field. */
bool read_field(const entry &entry, const cJSON *item, const scene_field &field, const message &error)
{
    switch (field.type)
    {
    case field_type::fault:
        return read_word(entry, item, field, scene_fault_words, error);
    case field_type::fluctuation:
        return read_word(entry, item, field, scene_fluctuation_words, error);
    case field_type::body:
        return read_word(entry, item, field, body_words, error);
    case field_type::real:
    case field_type::whole:
        break;
    }
    return read_number(entry, item, field, error);
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
bool has_required_fields(const entry &entry, uint32_t given, const message &error)
{
    for (uint32_t i = 0; i < entry.section.field_count; ++i)
    {
        const scene_field &field = entry.section.fields[i];
        if (field.required && (given & (1U << i)) == 0U)
        {
            return refuse(error, "%s%s[%lu] needs the key \"%s\"", entry.owner, entry.section.name,
                          static_cast<unsigned long>(entry.index), field.name);
        }
    }
    return true;
}

/** Returns whether an entry has a key. */
bool has_key(const cJSON *object, const char *key)
{
    return cJSON_GetObjectItemCaseSensitive(object, key) != nullptr;
}

/** Returns whether an entry has a place in space. */
bool has_place(const cJSON *object)
{
    return has_key(object, "x_m") || has_key(object, "y_m") || has_key(object, "z_m");
}

/** Reads the fields of an entry, except the lists of a target. */
bool read_fields(const entry &entry, const cJSON *object, const message &error)
{
    if (!cJSON_IsObject(object))
    {
        return refuse_entry(entry, " must be an object", error);
    }
    uint32_t given = 0;
    for (const cJSON *item = object->child; item != nullptr; item = item->next)
    {
        const bool is_list = &entry.section == &scene_targets && is_list_of_target(item->string);
        const scene_field *field = find_field(entry.section, item->string, given);
        if (field == nullptr && !(is_list && cJSON_GetObjectItemCaseSensitive(object, item->string) == item))
        {
            return refuse_key(entry, item->string, error);
        }
        if (field != nullptr)
        {
            given |= 1U << static_cast<uint32_t>(field - entry.section.fields);
            if (!read_field(entry, item, *field, error))
            {
                return false;
            }
        }
    }
    return has_required_fields(entry, given, error);
}

/** Adds an entry to a list of the scene and reads its fields. */
bool read_next(const char *owner, uint32_t index, const scene_section &section, const cJSON *object,
               zet_simulator_scene_t &scene, const message &error)
{
    const uint16_t count = scene_count_get(scene, section);
    if (count == section.capacity)
    {
        return refuse(error, "%s must have at most %u entries%s", section.name,
                      static_cast<unsigned>(section.capacity),
                      owner[0] != '\0' ? " in all targets together" : "");
    }
    scene_count_set(scene, section, static_cast<uint16_t>(count + 1U));
    if (&section == &scene_hardware)
    {
        scene.hardware[count] = zet_simulator_default_hardware();
    }
    return read_fields({owner, section, index, scene_entry(scene, section, count)}, object, error);
}

/** Reads the entries of a list of a target; returns how many there are in @p count. */
bool read_list(const char *owner, const scene_section &section, const cJSON *array,
               zet_simulator_scene_t &scene, uint16_t &count, const message &error)
{
    if (array != nullptr && !cJSON_IsArray(array))
    {
        return refuse(error, "%s%s must be an array", owner, section.name);
    }
    const cJSON *object = array != nullptr ? array->child : nullptr;
    for (count = 0; object != nullptr; object = object->next)
    {
        if (!read_next(owner, count, section, object, scene, error))
        {
            return false;
        }
        ++count;
    }
    return true;
}

/** Checks that each keyframe of a track has a distance, or each has a place. */
bool are_keyframes_alike(const char *owner, const cJSON *track, bool in_space, const message &error)
{
    uint32_t index = 0;
    for (const cJSON *each = track != nullptr ? track->child : nullptr; each != nullptr; each = each->next)
    {
        const bool is_complete =
            in_space ? has_key(each, "x_m") && has_key(each, "y_m") && !has_key(each, "distance_m")
                     : has_key(each, "distance_m") && !has_place(each);
        if (!is_complete)
        {
            return refuse(error, "%strack[%lu] needs %s, like the other entries and the target", owner,
                          static_cast<unsigned long>(index),
                          in_space ? "x_m and y_m, and no distance_m" : "distance_m, and no place");
        }
        ++index;
    }
    return true;
}

/** Reads the lists of a target. */
bool read_lists(const entry &entry, const cJSON *object, zet_simulator_scene_t &scene, const message &error)
{
    auto &target = *reinterpret_cast<zet_simulator_target_t *>(entry.record);
    char owner[16];
    refuse({owner, sizeof(owner)}, "targets[%lu].", static_cast<unsigned long>(entry.index));
    const cJSON *track = cJSON_GetObjectItemCaseSensitive(object, scene_keyframes.name);
    const cJSON *oscillations = cJSON_GetObjectItemCaseSensitive(object, scene_oscillations.name);
    target.first_oscillation = scene.oscillation_count;
    target.first_keyframe = scene.keyframe_count;
    if (!read_list(owner, scene_oscillations, oscillations, scene, target.oscillation_count, error) ||
        !read_list(owner, scene_keyframes, track, scene, target.keyframe_count, error))
    {
        return false;
    }
    target.has_place = has_place(object) || (target.keyframe_count > 0U && has_place(track->child));
    return are_keyframes_alike(owner, track, target.has_place, error);
}

/** Checks that the bounds of a target are both given, or none. */
bool has_both_bounds_or_none(const entry &entry, const cJSON *object, const message &error)
{
    return has_key(object, "nearest_m") == has_key(object, "farthest_m") ||
           refuse_entry(entry, " has only one of the keys nearest_m and farthest_m; give both or none",
                        error);
}

/** Returns whether a list of hardware is replaced by the word for ideal sensors. */
bool is_ideal(const scene_section &section, const cJSON *item)
{
    return &section == &scene_hardware && cJSON_IsString(item) &&
           std::strcmp(item->valuestring, scene_ideal_word) == 0;
}

/** Reads one list of the scene. */
bool read_section(const scene_section &section, const cJSON *array, zet_simulator_scene_t &scene,
                  const message &error)
{
    if (is_ideal(section, array))
    {
        return true;
    }
    if (!cJSON_IsArray(array))
    {
        return refuse(error, "%s must be an array%s", section.name,
                      &section == &scene_hardware ? " or \"ideal\"" : "");
    }
    uint32_t index = 0;
    for (const cJSON *object = array->child; object != nullptr; object = object->next)
    {
        if (!read_next("", index, section, object, scene, error))
        {
            return false;
        }
        const entry read = {"", section, index, scene_entry(scene, section, index)};
        if (&section == &scene_targets &&
            (!has_both_bounds_or_none(read, object, error) || !read_lists(read, object, scene, error)))
        {
            return false;
        }
        ++index;
    }
    return true;
}

/** Reads the kind of a body. */
bool read_body_kind(const cJSON *object, uint32_t index, body &read, const message &error)
{
    const scene_section &any = body_sections[0];
    const entry entry = {"", any, index, reinterpret_cast<unsigned char *>(&read)};
    if (!cJSON_IsObject(object))
    {
        return refuse_entry(entry, " must be an object", error);
    }
    const cJSON *kind = cJSON_GetObjectItemCaseSensitive(object, "kind");
    return read_field(entry, kind, *find_field(any, "kind", 0), error);
}

/** Reads a body and adds its targets. */
bool read_body(const cJSON *object, uint32_t index, zet_simulator_scene_t &scene, const message &error)
{
    body read = {};
    if (!read_body_kind(object, index, read, error))
    {
        return false;
    }
    read = body_with_defaults(read.kind);
    const scene_section &section = body_sections[static_cast<size_t>(read.kind)];
    const entry entry = {"", section, index, reinterpret_cast<unsigned char *>(&read)};
    return read_fields(entry, object, error) && body_expand(read, index, scene, error);
}

/** Reads the bodies, when the targets have been read. */
bool read_bodies(const cJSON *array, zet_simulator_scene_t &scene, const message &error)
{
    if (array == nullptr)
    {
        return true;
    }
    if (!cJSON_IsArray(array))
    {
        return refuse(error, "bodies must be an array");
    }
    uint32_t index = 0;
    for (const cJSON *object = array->child; object != nullptr; object = object->next)
    {
        if (!read_body(object, index, scene, error))
        {
            return false;
        }
        ++index;
    }
    return true;
}

/** Reads one member of the document: a list, or the description and the bodies, which are not read here. */
bool read_member(const cJSON *document, const cJSON *item, uint32_t &given, zet_simulator_scene_t &scene,
                 const message &error)
{
    const bool is_first = cJSON_GetObjectItemCaseSensitive(document, item->string) == item;
    if ((std::strcmp(item->string, "description") == 0 && cJSON_IsString(item)) ||
        (std::strcmp(item->string, "bodies") == 0 && is_first))
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
        "arrays targets, bodies, sensors, interferers, temperatures, faults, hardware",
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

/** Adds the hardware of a scene that describes none. */
void add_default_hardware(const cJSON *document, zet_simulator_scene_t &scene)
{
    if (!has_key(document, scene_hardware.name))
    {
        scene.hardware_count = 1;
        scene.hardware[0] = zet_simulator_default_hardware();
    }
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
        if (!read_member(document, item, given, scene, error))
        {
            return false;
        }
    }
    add_default_hardware(document, scene);
    return read_bodies(cJSON_GetObjectItemCaseSensitive(document, "bodies"), scene, error) &&
           zet_simulator_scene_is_valid(&scene, error.text, error.size);
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
