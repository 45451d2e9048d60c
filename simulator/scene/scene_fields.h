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
    double lowest;
    double highest;
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

/**
 * Checks a value against the range of its field.
 *
 * @param owner  text before the name of the list in the message
 * @param index  number of the entry, for the message
 * @param error  receives what is wrong
 */
bool scene_value_is_valid(const char *owner, const scene_section &section, uint32_t index,
                          const scene_field &field, double value, const message &error);

} // namespace zet_simulator

#endif
