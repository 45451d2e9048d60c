/** @file
 * The fields of a scene: names, offsets, ranges. The only definition of what a scene may contain.
 */
#ifndef ZET_SIMULATOR_SCENE_FIELDS_H
#define ZET_SIMULATOR_SCENE_FIELDS_H

#include <cstddef>
#include <cstdint>

#include "common/message.h"
#include "zet_simulator_scene.h"

namespace zet_simulator
{

/** The index of a place that is not in a list. */
constexpr uint32_t no_index = UINT32_MAX;

/** An entry of a list of a scene, such as targets[1], or of a list in it, such as targets[1].track[2].
 * Without a list it is the scene itself, without an index the list. */
struct scene_place
{
    const char *list;
    uint32_t index = no_index;
#ifndef ZET_SIMULATOR_SMALL_SCENE
    const char *inner = nullptr; /**< a list in the entry */
    uint32_t inner_index = no_index;
#endif
};

/** What is wrong with a scene: one sentence, which begins with the place. */
struct scene_report
{
    message text;
#ifndef ZET_SIMULATOR_SMALL_SCENE
    scene_place place = {nullptr};
    const char *key = nullptr; /**< in the entry; null if it is about the entry itself */
#endif
};

/**
 * Reports what is wrong at a place.
 *
 * @param key     in the entry; null if it is about the entry itself
 * @param format  printf format for the text after the place, followed by its arguments
 * @return false, so that the check that failed can return it
 */
bool refuse_at(scene_report &report, const scene_place &entry, const char *key, const char *format, ...)
    ZET_PRINTF_FORMAT(4, 5);

/** How a field is stored in its record. */
enum class field_type : uint8_t
{
    real,        /**< a float */
    whole,       /**< a uint32_t */
    fault,       /**< a zet_simulator_fault_kind_t; a word in a scene file */
    fluctuation, /**< a zet_simulator_fluctuation_t; a word in a scene file */
    body,        /**< a kind of body; a word in a scene file */
};

/** One field of an entry. */
struct scene_field
{
    const char *name;
    uint16_t offset; /**< within the entry */
    field_type type;
    bool required; /**< must be given; another field is 0 when absent, also if that is not in its range */
    float lowest;
    float highest;
};

/** One list of entries. */
struct scene_section
{
    const char *name;
    size_t count_offset;   /**< of the number of entries, a uint16_t, within the scene */
    size_t entries_offset; /**< of the first entry */
    size_t entry_size;
    uint16_t capacity;
    uint8_t field_count;
    const scene_field *fields;
};

#ifdef ZET_SIMULATOR_SMALL_SCENE
constexpr size_t scene_section_count = 5;
#else
constexpr size_t scene_section_count = 6;
#endif

/** The lists of a scene. The first field of their entries is the number of the sensor. */
extern const scene_section scene_sections[scene_section_count];

/** The list of hardware, one of scene_sections. Its entries have defaults, and all of their fields are
 * written.
 */
extern const scene_section &scene_hardware;

/** Returns whether a list is that of the targets. */
inline bool is_target(const scene_section &section)
{
    return &section == &scene_sections[0];
}

/** The keys of a target that are not fields. */
constexpr const char *scene_target_keys[] = {"oscillations", "track", "track_file"};

/** The oscillations of all targets; in a scene file, each target has its own list of this name. */
extern const scene_section scene_oscillations;

/** The keyframes of all targets; in a scene file, each target has its own list of this name. */
extern const scene_section scene_keyframes;

constexpr uint32_t scene_fault_word_count = ZET_SIMULATOR_FAULT_SLOW_LINK + 1U;

/** The word for each kind of fault in a scene file. */
extern const char *const scene_fault_words[scene_fault_word_count];

constexpr uint32_t scene_fluctuation_word_count = ZET_SIMULATOR_FLUCTUATION_SWERLING_3 + 1U;

/** The word for each kind of fluctuation in a scene file. */
extern const char *const scene_fluctuation_words[scene_fluctuation_word_count];

/** The word for a scene with ideal sensors, instead of a list of hardware. */
constexpr const char *scene_ideal_word = "ideal";

/** Returns the number of entries of a list. */
uint16_t scene_count_get(const zet_simulator_scene_t &scene, const scene_section &section);

/** Sets the number of entries of a list. */
void scene_count_set(zet_simulator_scene_t &scene, const scene_section &section, uint16_t count);

/** Returns the address of an entry of a list in a scene. */
unsigned char *scene_entry(zet_simulator_scene_t &scene, const scene_section &section, uint32_t index);

/** Reads a field. */
double scene_field_get(const unsigned char *entry, const scene_field &field);

/** Writes a field; the value must be in the field's range. */
void scene_field_set(unsigned char *entry, const scene_field &field, double value);

/** Reports a value of an entry that does not fit to another one; @p expected  ends with the name of the other
 * one. */
bool refuse_beside(scene_report &report, const scene_place &entry, const char *key, float value,
                   const char *expected, float other);

/** Checks a value of an entry against the range of its field. */
bool scene_value_is_valid(const scene_place &entry, const scene_field &field, double value,
                          scene_report &report);

#ifndef ZET_SIMULATOR_SMALL_SCENE
/** Checks that a board has the sensor of an entry. */
bool scene_sensor_is_valid(const scene_place &entry, uint32_t sensor_id, uint16_t sensor_count,
                           scene_report &report);

/** Checks a scene: zet_simulator_scene_is_valid(). */
bool scene_is_valid(const zet_simulator_scene_t &scene, scene_report &report);
#endif

} // namespace zet_simulator

#endif
