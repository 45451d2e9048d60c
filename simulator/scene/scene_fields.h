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
    real,  /**< a float */
    whole, /**< a uint32_t */
    fault, /**< a zet_simulator_fault_kind_t; a word in a scene file */
};

/** One field of an entry. */
struct scene_field
{
    const char *name;
    size_t offset; /**< within the entry */
    field_type type;
    bool required; /**< must be given; an optional field is 0 when absent */
    double lowest;
    double highest;
};

/** One list of entries. */
struct scene_section
{
    const char *name;
    size_t count_offset;   /**< of the number of entries, a uint8_t, within the scene */
    size_t entries_offset; /**< of the first entry */
    size_t entry_size;
    uint8_t capacity;
    uint8_t field_count;
    const scene_field *fields; /**< the first is the number of the sensor */
};

constexpr size_t scene_section_count = 4;

/** The lists of a scene. */
extern const scene_section scene_sections[scene_section_count];

constexpr uint32_t scene_fault_word_count = ZET_SIMULATOR_FAULT_SLOW_LINK + 1U;

/** The word for each kind of fault in a scene file. */
extern const char *const scene_fault_words[scene_fault_word_count];

/** Returns the address of an entry of a list in a scene. */
unsigned char *scene_entry(zet_simulator_scene_t &scene, const scene_section &section, uint32_t index);

/** Reads a field. */
double scene_field_get(const unsigned char *entry, const scene_field &field);

/** Writes a field; the value must be in the field's range. */
void scene_field_set(unsigned char *entry, const scene_field &field, double value);

/**
 * Checks a value against the range of its field.
 *
 * @param index  number of the entry, for the message
 * @param error  receives what is wrong
 */
bool scene_value_is_valid(const scene_section &section, uint32_t index, const scene_field &field,
                          double value, const message &error);

} // namespace zet_simulator

#endif
