/** @file
 * A scene while it is read from a document.
 */
#ifndef ZET_SIMULATOR_SCENE_READING_H
#define ZET_SIMULATOR_SCENE_READING_H

#include <cjson/cJSON.h>

#include "scene/json_text.h"
#include "scene/scene_fields.h"
#include "zet_simulator_scene_json.h"

namespace zet_simulator
{

/** A scene while it is read. */
struct scene_reading
{
    const zet_simulator_scene_source_t &source;
    zet_simulator_scene_t &scene;
    scene_report report;
    const cJSON *wrong_key = nullptr; /**< the item with a key that must not be there; null if none */
    uint32_t own_target_count = 0;    /**< targets that do not come from bodies */
    uint16_t bodies[ZET_SIMULATOR_MAX_TARGETS] = {}; /**< the body that each target comes from */
};

/** An entry of a list that is read. */
struct scene_entry_reading
{
    scene_place place;
    const scene_section &section;
    unsigned char *record;
};

/** Returns whether an entry has a key. */
inline bool has_key(const cJSON *object, const char *key)
{
    return cJSON_GetObjectItemCaseSensitive(object, key) != nullptr;
}

/** Returns whether an item is not the first one with its key. */
inline bool is_repeated(const cJSON *object, const cJSON *item)
{
    return cJSON_GetObjectItemCaseSensitive(object, item->string) != item;
}

/** Describes a value for a message. */
text_excerpt text_of_item(const cJSON *item);

/** Reports that a key is repeated. */
bool refuse_repeated(scene_reading &reading, const scene_place &place, const cJSON *item);

/** Reports that a value does not have the type that it must have. */
bool refuse_type(scene_reading &reading, const scene_place &place, const char *key, const cJSON *item,
                 const char *expected);

/** Reads the fields of an entry, except the lists of a target. */
bool read_fields(scene_reading &reading, const scene_entry_reading &entry, const cJSON *object);

/** Reads the value of a field that an entry must have, and no other; @p object  must be an object. */
bool read_required(scene_reading &reading, const scene_entry_reading &entry, const cJSON *object,
                   const char *key);

/** Adds the place of what is wrong, by line and column, to the message about a document. */
void add_position(const scene_reading &reading, const cJSON *document);

} // namespace zet_simulator

#endif
