/** @file
 * Reads scene files.
 */
#include <algorithm>
#include <cstring>

#include "common/number_text.h"
#include "scene/bodies/bodies.h"
#include "scene/scene_reading.h"
#include "scene/track_file.h"

namespace
{

using namespace zet_simulator;

const scene_section &scene_targets = scene_sections[0];

/** The keys that are part of a place. */
constexpr const char *position_keys[] = {"distance_m", "x_m", "y_m", "z_m"};

/** Returns whether an entry has a place in space. */
bool has_place(const cJSON *object)
{
    return has_key(object, "x_m") || has_key(object, "y_m") || has_key(object, "z_m");
}

/** Reads an entry of a list of a target. */
bool read_inner_entry(scene_reading &reading, const scene_place &place, const scene_section &section,
                      const cJSON *object)
{
    const uint16_t count = scene_count_get(reading.scene, section);
    if (count == section.capacity)
    {
        return refuse_at(reading.report, place, nullptr,
                         " is entry %u of all targets together, but there must be at most %u",
                         section.capacity + 1U, static_cast<unsigned>(section.capacity));
    }
    scene_count_set(reading.scene, section, static_cast<uint16_t>(count + 1U));
    return read_fields(reading, {place, section, scene_entry(reading.scene, section, count)}, object);
}

/** Reads a list of a target; returns how many entries there are in @p count. */
bool read_inner_list(scene_reading &reading, const scene_place &target, const scene_section &section,
                     const cJSON *array, uint16_t &count)
{
    count = 0;
    if (array != nullptr && !cJSON_IsArray(array))
    {
        return refuse_type(reading, target, section.name, array, "an array, [{ ... }]");
    }
    const cJSON *object = array != nullptr ? array->child : nullptr;
    for (; object != nullptr; object = object->next)
    {
        if (!read_inner_entry(reading, {target.list, target.index, section.name, count}, section, object))
        {
            return false;
        }
        ++count;
    }
    return true;
}

/** Reports a keyframe of which the position is not like that of the target and the other keyframes. */
bool refuse_position(scene_reading &reading, const scene_place &keyframe, const cJSON *object, bool in_space)
{
    const message &text = reading.report.text;
    refuse_at(reading.report, keyframe, nullptr, " has ");
    const char *separator = "";
    for (const char *key : position_keys)
    {
        if (has_key(object, key))
        {
            append(text, "%s%s", separator, key);
            separator = " and ";
        }
    }
    append(text, "%s, but must have %s, like the target and its other keyframes",
           separator[0] == '\0' ? "no position" : "",
           in_space ? "x_m and y_m, and no distance_m" : "distance_m, and no place");
    return false;
}

/** Checks that each keyframe of a track has a distance, or each has a place. */
bool are_keyframes_alike(scene_reading &reading, const scene_place &target, const cJSON *track, bool in_space)
{
    uint32_t index = 0;
    for (const cJSON *each = track != nullptr ? track->child : nullptr; each != nullptr; each = each->next)
    {
        const bool is_complete =
            in_space ? has_key(each, "x_m") && has_key(each, "y_m") && !has_key(each, "distance_m")
                     : has_key(each, "distance_m") && !has_place(each);
        if (!is_complete)
        {
            return refuse_position(reading, {target.list, target.index, scene_keyframes.name, index}, each,
                                   in_space);
        }
        ++index;
    }
    return true;
}

/** Reads the track of a target, which is in the scene, in a file, or not given. */
bool read_track(scene_reading &reading, const scene_place &place, const cJSON *object)
{
    zet_simulator_target_t &target = reading.scene.targets[place.index];
    const cJSON *track = cJSON_GetObjectItemCaseSensitive(object, scene_keyframes.name);
    const cJSON *file = cJSON_GetObjectItemCaseSensitive(object, track_file_key);
    target.first_keyframe = reading.scene.keyframe_count;
    target.has_place = has_place(object);
    if (file == nullptr)
    {
        const bool is_read = read_inner_list(reading, place, scene_keyframes, track, target.keyframe_count);
        target.has_place |= target.keyframe_count > 0U && has_place(track->child);
        return is_read && are_keyframes_alike(reading, place, track, target.has_place);
    }
    if (track != nullptr)
    {
        return refuse_at(reading.report, place, track_file_key,
                         " is given beside track, but only one of them may be");
    }
    track_file read = {};
    const bool is_read = read_track_file(reading, place, file, target.has_place, read);
    target.keyframe_count = read.count;
    target.has_place |= read.in_space;
    return is_read;
}

/** Reads the lists of a target. */
bool read_lists(scene_reading &reading, const scene_place &place, const cJSON *object)
{
    zet_simulator_target_t &target = reading.scene.targets[place.index];
    const cJSON *oscillations = cJSON_GetObjectItemCaseSensitive(object, scene_oscillations.name);
    target.first_oscillation = reading.scene.oscillation_count;
    return read_inner_list(reading, place, scene_oscillations, oscillations, target.oscillation_count) &&
           read_track(reading, place, object);
}

/** Checks that the bounds of a target are both given, or none, and that one is more than the other. */
bool are_bounds_complete(scene_reading &reading, const scene_place &place, const cJSON *object)
{
    const bool has_nearest = has_key(object, "nearest_m");
    if (has_nearest != has_key(object, "farthest_m"))
    {
        return refuse_at(reading.report, place, has_nearest ? "nearest_m" : "farthest_m",
                         " is given without %s, but both or none of them must be given",
                         has_nearest ? "farthest_m" : "nearest_m");
    }
    const zet_simulator_target_t &target = reading.scene.targets[place.index];
    return !has_nearest || target.farthest_m > target.nearest_m ||
           refuse_beside(reading.report, place, "farthest_m", target.farthest_m, "more than nearest_m",
                         target.nearest_m);
}

/** Checks that the direction of a sensor is not of length 0. */
bool has_direction(scene_reading &reading, const scene_place &place, const cJSON *object)
{
    const float(&direction)[3] = reading.scene.poses[place.index].direction;
    const bool is_given =
        has_key(object, "direction_x") || has_key(object, "direction_y") || has_key(object, "direction_z");
    return !is_given || direction[0] != 0.0F || direction[1] != 0.0F || direction[2] != 0.0F ||
           refuse_at(reading.report, place, nullptr,
                     " has a direction of 0, 0, 0, but one of direction_x, direction_y and direction_z must "
                     "be other than 0");
}

/** Reads what an entry of a list has besides fields, and checks which of its keys are given. */
bool read_rest(scene_reading &reading, const scene_entry_reading &entry, const cJSON *object)
{
    if (is_target(entry.section))
    {
        return are_bounds_complete(reading, entry.place, object) && read_lists(reading, entry.place, object);
    }
    const bool is_pose = entry.section.entries_offset == offsetof(zet_simulator_scene_t, poses);
    return !is_pose || has_direction(reading, entry.place, object);
}

/** Returns whether a list is that of the hardware. */
bool is_hardware(const scene_section &section)
{
    return &section == &scene_hardware;
}

/** Returns whether a list of hardware is replaced by the word for ideal sensors. */
bool is_ideal(const scene_section &section, const cJSON *item)
{
    return is_hardware(section) && cJSON_IsString(item) &&
           std::strcmp(item->valuestring, scene_ideal_word) == 0;
}

/** Reads one list of the scene. */
bool read_section(scene_reading &reading, const scene_section &section, const cJSON *array)
{
    if (is_ideal(section, array))
    {
        return true;
    }
    if (!cJSON_IsArray(array))
    {
        return refuse_type(reading, {section.name}, nullptr, array,
                           is_hardware(section) ? "an array, [{ ... }], or \"ideal\""
                                                : "an array, [{ ... }]");
    }
    uint32_t index = 0;
    for (const cJSON *object = array->child; object != nullptr; object = object->next)
    {
        if (index == section.capacity)
        {
            return refuse_at(reading.report, {section.name, index}, nullptr,
                             " is one of %d entries, but there must be at most %u", cJSON_GetArraySize(array),
                             static_cast<unsigned>(section.capacity));
        }
        scene_count_set(reading.scene, section, static_cast<uint16_t>(index + 1U));
        if (is_hardware(section))
        {
            reading.scene.hardware[index] = zet_simulator_default_hardware();
        }
        const scene_entry_reading entry = {
            {section.name, index}, section, scene_entry(reading.scene, section, index)};
        if (!read_fields(reading, entry, object) || !read_rest(reading, entry, object))
        {
            return false;
        }
        ++index;
    }
    return true;
}

/** Reads the kind of a body. */
bool read_body_kind(scene_reading &reading, const scene_place &place, const cJSON *object, body &read)
{
    if (!cJSON_IsObject(object))
    {
        return refuse_type(reading, place, nullptr, object, "an object");
    }
    const scene_entry_reading entry = {place, body_sections[0], reinterpret_cast<unsigned char *>(&read)};
    return read_required(reading, entry, object, "kind");
}

/** Returns the least number of a body that no target has. */
uint32_t unused_body(const zet_simulator_scene_t &scene)
{
    const auto *end = scene.targets + scene.target_count;
    uint32_t number = 1;
    while (std::any_of(scene.targets, end, [&](const auto &target) { return target.body == number; }))
    {
        ++number;
    }
    return number;
}

/** Whether all targets of a body are one thing, not several that are each to be found. */
bool is_one_thing(body_kind kind)
{
    return kind != body_kind::clutter && kind != body_kind::surface;
}

/** Reads a body and adds its targets. */
bool read_body(scene_reading &reading, uint32_t index, const cJSON *object)
{
    const scene_place place = {"bodies", index};
    body read = {};
    if (!read_body_kind(reading, place, object, read))
    {
        return false;
    }
    read = body_with_defaults(read.kind);
    const scene_section &section = body_sections[static_cast<size_t>(read.kind)];
    const uint16_t first = reading.scene.target_count;
    const uint32_t number = is_one_thing(read.kind) ? unused_body(reading.scene) : 0;
    if (!read_fields(reading, {place, section, reinterpret_cast<unsigned char *>(&read)}, object) ||
        !body_expand(read, place, reading.scene, reading.report))
    {
        return false;
    }
    for (uint32_t i = first; i < reading.scene.target_count; ++i)
    {
        reading.bodies[i] = static_cast<uint16_t>(index);
        reading.scene.targets[i].body = number;
    }
    return true;
}

/** Reads the bodies, when the targets have been read. */
bool read_bodies(scene_reading &reading, const cJSON *array)
{
    reading.own_target_count = reading.scene.target_count;
    if (array != nullptr && !cJSON_IsArray(array))
    {
        return refuse_type(reading, {"bodies"}, nullptr, array, "an array, [{ ... }]");
    }
    uint32_t index = 0;
    for (const cJSON *object = array != nullptr ? array->child : nullptr; object != nullptr;
         object = object->next)
    {
        if (!read_body(reading, index, object))
        {
            return false;
        }
        ++index;
    }
    if (reading.source.body_count != nullptr)
    {
        *reading.source.body_count = index;
    }
    return true;
}

/** Reports that the scene has a key that is not allowed, and which keys are. */
bool refuse_scene_key(scene_reading &reading, const cJSON *item)
{
    reading.wrong_key = item;
    refuse_at(reading.report, {nullptr}, nullptr,
              " has the unknown key %s; the keys are $schema, description, bodies",
              text_quoted(item->string).text);
    for (const scene_section &section : scene_sections)
    {
        append(reading.report.text, ", %s", section.name);
    }
    return false;
}

/** Finds the list of the scene with the name of a key; null when there is none. */
const scene_section *find_section(const char *key)
{
    for (const scene_section &section : scene_sections)
    {
        if (std::strcmp(section.name, key) == 0)
        {
            return &section;
        }
    }
    return nullptr;
}

/** Reads one member of the document, except the bodies. */
bool read_member(scene_reading &reading, const cJSON *document, const cJSON *item)
{
    const bool is_text =
        std::strcmp(item->string, "description") == 0 || std::strcmp(item->string, "$schema") == 0;
    const bool is_bodies = std::strcmp(item->string, "bodies") == 0;
    const scene_section *section = find_section(item->string);
    if (!is_text && !is_bodies && section == nullptr)
    {
        return refuse_scene_key(reading, item);
    }
    if (is_repeated(document, item))
    {
        return refuse_repeated(reading, {nullptr}, item);
    }
    if (is_text)
    {
        return cJSON_IsString(item) || refuse_type(reading, {item->string}, nullptr, item, "a string");
    }
    return is_bodies || read_section(reading, *section, item);
}

/** Names the body in a message about a target that comes from one. */
void name_body(scene_reading &reading)
{
    const scene_place &place = reading.report.place;
    const bool is_of_target = place.list != nullptr && std::strcmp(place.list, scene_targets.name) == 0;
    if (is_of_target && place.index >= reading.own_target_count)
    {
        char about_target[256];
        refuse({about_target, sizeof(about_target)}, "%s", reading.report.text.text);
        refuse_at(reading.report, {"bodies", reading.bodies[place.index]}, nullptr,
                  " gives a target that cannot be: %s", about_target);
    }
}

/** Checks the values against each other. */
bool is_consistent(scene_reading &reading)
{
    const bool valid = scene_is_valid(reading.scene, reading.report);
    if (!valid)
    {
        name_body(reading);
    }
    return valid;
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
bool read_document(scene_reading &reading, const cJSON *document)
{
    if (!cJSON_IsObject(document))
    {
        return refuse_type(reading, {nullptr}, nullptr, document, "an object");
    }
    for (const cJSON *item = document->child; item != nullptr; item = item->next)
    {
        if (!read_member(reading, document, item))
        {
            return false;
        }
    }
    add_default_hardware(document, reading.scene);
    return read_bodies(reading, cJSON_GetObjectItemCaseSensitive(document, "bodies")) &&
           is_consistent(reading);
}

/** Checks that the source is JSON. */
bool is_json(const zet_simulator_scene_source_t &source, const message &error)
{
    const std::string_view text = {source.text, source.size};
    json_fault fault = {};
    if (json_text_is_valid(text, fault))
    {
        return true;
    }
    refuse(error, "the scene is not JSON: it has %s where it must have %s",
           text_excerpt_at(text, fault.at).text, fault.expected);
    append_position(error, text, fault.at);
    return false;
}

} // namespace

bool zet_simulator_scene_from_json(const zet_simulator_scene_source_t *source, zet_simulator_scene_t *scene,
                                   char *error, size_t error_size)
{
    scene_reading reading = {*source, *scene, {{error, error_size}}};
    if (!is_json(*source, reading.report.text))
    {
        return false;
    }
    cJSON *document = cJSON_ParseWithLength(source->text, source->size);
    if (document == nullptr)
    {
        return refuse(reading.report.text, "there is not enough memory for the scene");
    }
    std::memset(scene, 0, sizeof(*scene));
    const bool valid = read_document(reading, document);
    if (!valid)
    {
        add_position(reading, document);
    }
    cJSON_Delete(document);
    return valid;
}
