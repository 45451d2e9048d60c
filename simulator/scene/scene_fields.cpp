/** @file
 * The fields of a scene, and the check of a complete scene against them.
 */
#include "scene/scene_fields.h"

#include <cstring>

#include "common/number_text.h"

namespace
{

using namespace zet_simulator;

constexpr double highest_sensor_id = UINT16_MAX;
constexpr double highest_count = 1.0e8;
constexpr double longest_time_s = 1.0e6;

/** Returns the field that every entry has, with its offset in the entry. */
constexpr scene_field sensor_field(size_t offset)
{
    return {"sensor", offset, field_type::whole, false, 0.0, highest_sensor_id};
}

using target_record = zet_simulator_target_t;
constexpr scene_field target_fields[] = {
    sensor_field(offsetof(target_record, sensor_id)),
    {"distance_m", offsetof(target_record, distance_m), field_type::real, true, 0.01, 1000.0},
    {"strength_m2", offsetof(target_record, strength_m2), field_type::real, true, 0.001, 10000.0},
    {"velocity_m_s", offsetof(target_record, velocity_m_s), field_type::real, false, -100.0, 100.0},
    {"oscillation_amplitude_m", offsetof(target_record, oscillation_amplitude_m), field_type::real, false,
     0.0, 10.0},
    {"oscillation_frequency_hz", offsetof(target_record, oscillation_frequency_hz), field_type::real, false,
     0.0, 1000.0},
    {"nearest_m", offsetof(target_record, nearest_m), field_type::real, false, 0.0, 1000.0},
    {"farthest_m", offsetof(target_record, farthest_m), field_type::real, false, 0.0, 1000.0},
};

using interferer_record = zet_simulator_interferer_t;
constexpr scene_field interferer_fields[] = {
    sensor_field(offsetof(interferer_record, sensor_id)),
    {"strength", offsetof(interferer_record, strength), field_type::real, true, 0.01, 1.0e6},
    {"start_s", offsetof(interferer_record, start_s), field_type::real, false, 0.0, longest_time_s},
    {"duration_s", offsetof(interferer_record, duration_s), field_type::real, false, 0.0, longest_time_s},
    {"period_s", offsetof(interferer_record, period_s), field_type::real, false, 0.0, longest_time_s},
};

using temperature_record = zet_simulator_temperature_t;
constexpr scene_field temperature_fields[] = {
    sensor_field(offsetof(temperature_record, sensor_id)),
    {"celsius", offsetof(temperature_record, celsius), field_type::real, true, -40.0, 125.0},
    {"drift_celsius_per_s", offsetof(temperature_record, drift_celsius_per_s), field_type::real, false,
     -100.0, 100.0},
};

using fault_record = zet_simulator_fault_t;
constexpr scene_field fault_fields[] = {
    sensor_field(offsetof(fault_record, sensor_id)),
    {"kind", offsetof(fault_record, kind), field_type::fault, true, 0.0, ZET_SIMULATOR_FAULT_SLOW_LINK},
    {"skip", offsetof(fault_record, skip), field_type::whole, false, 0.0, highest_count},
    {"count", offsetof(fault_record, count), field_type::whole, false, 0.0, highest_count},
    {"bytes_per_second", offsetof(fault_record, bytes_per_second), field_type::whole, false, 0.0,
     highest_count},
};

/** Returns the number of rows of a table of fields. */
template <size_t count> constexpr uint8_t count_of(const scene_field (&)[count])
{
    return static_cast<uint8_t>(count);
}

/** Checks the fields of a target against each other. */
bool is_consistent(const target_record &target, uint32_t index, const message &error)
{
    if (target.nearest_m == 0.0F && target.farthest_m == 0.0F)
    {
        return true;
    }
    if (target.farthest_m <= target.nearest_m)
    {
        return refuse(error, "targets[%lu].farthest_m must be more than nearest_m",
                      static_cast<unsigned long>(index));
    }
    if (target.distance_m < target.nearest_m || target.distance_m > target.farthest_m)
    {
        return refuse(error, "targets[%lu].distance_m must be from nearest_m to farthest_m",
                      static_cast<unsigned long>(index));
    }
    return true;
}

/** Checks the fields of an interferer against each other. */
bool is_consistent(const interferer_record &interferer, uint32_t index, const message &error)
{
    if (interferer.period_s > 0.0F &&
        (interferer.duration_s == 0.0F || interferer.duration_s > interferer.period_s))
    {
        return refuse(error, "interferers[%lu].duration_s must be more than 0 and at most period_s",
                      static_cast<unsigned long>(index));
    }
    return true;
}

/** Checks the fields of a fault against each other. */
bool is_consistent(const fault_record &fault, uint32_t index, const message &error)
{
    if ((fault.kind == ZET_SIMULATOR_FAULT_SLOW_LINK) != (fault.bytes_per_second != 0U))
    {
        return refuse(error,
                      "faults[%lu].bytes_per_second must be at least 1 for a slow_link and 0 or absent for "
                      "any other kind",
                      static_cast<unsigned long>(index));
    }
    return true;
}

/** Checks the fields of each entry against each other. */
bool are_entries_consistent(const zet_simulator_scene_t &scene, const message &error)
{
    for (uint32_t i = 0; i < scene.target_count; ++i)
    {
        if (!is_consistent(scene.targets[i], i, error))
        {
            return false;
        }
    }
    for (uint32_t i = 0; i < scene.interferer_count; ++i)
    {
        if (!is_consistent(scene.interferers[i], i, error))
        {
            return false;
        }
    }
    for (uint32_t i = 0; i < scene.fault_count; ++i)
    {
        if (!is_consistent(scene.faults[i], i, error))
        {
            return false;
        }
    }
    return true;
}

/** Returns the number of entries of a list. */
uint32_t count_of(const zet_simulator_scene_t &scene, const scene_section &section)
{
    return reinterpret_cast<const unsigned char *>(&scene)[section.count_offset];
}

/** Returns the address of an entry of a list. */
const unsigned char *entry_of(const zet_simulator_scene_t &scene, const scene_section &section,
                              uint32_t index)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(&scene);
    return bytes + section.entries_offset + index * section.entry_size;
}

/** Checks the entries of a list one by one. */
bool is_section_valid(const zet_simulator_scene_t &scene, const scene_section &section, const message &error)
{
    const uint32_t count = count_of(scene, section);
    if (count > section.capacity)
    {
        return refuse(error, "%s has %lu entries, but must have at most %u", section.name,
                      static_cast<unsigned long>(count), static_cast<unsigned>(section.capacity));
    }
    for (uint32_t index = 0; index < count; ++index)
    {
        const unsigned char *entry = entry_of(scene, section, index);
        for (uint32_t i = 0; i < section.field_count; ++i)
        {
            const scene_field &field = section.fields[i];
            if (!scene_value_is_valid(section, index, field, scene_field_get(entry, field), error))
            {
                return false;
            }
        }
    }
    return true;
}

/** Checks that a board has the sensors that the entries of a list name. */
bool does_section_fit(const zet_simulator_scene_t &scene, const scene_section &section, uint16_t sensor_count,
                      const message &error)
{
    const scene_field &sensor = section.fields[0];
    for (uint32_t index = 0; index < count_of(scene, section); ++index)
    {
        const double sensor_id = scene_field_get(entry_of(scene, section, index), sensor);
        if (sensor_id > sensor_count)
        {
            return refuse(error, "%s[%lu].%s is %lu, but the number of sensors on the board is %u",
                          section.name, static_cast<unsigned long>(index), sensor.name,
                          static_cast<unsigned long>(sensor_id), static_cast<unsigned>(sensor_count));
        }
    }
    return true;
}

} // namespace

namespace zet_simulator
{

const scene_section scene_sections[scene_section_count] = {
    {"targets", offsetof(zet_simulator_scene_t, target_count), offsetof(zet_simulator_scene_t, targets),
     sizeof(target_record), ZET_SIMULATOR_MAX_TARGETS, count_of(target_fields), target_fields},
    {"interferers", offsetof(zet_simulator_scene_t, interferer_count),
     offsetof(zet_simulator_scene_t, interferers), sizeof(interferer_record), ZET_SIMULATOR_MAX_INTERFERERS,
     count_of(interferer_fields), interferer_fields},
    {"temperatures", offsetof(zet_simulator_scene_t, temperature_count),
     offsetof(zet_simulator_scene_t, temperatures), sizeof(temperature_record),
     ZET_SIMULATOR_MAX_TEMPERATURES, count_of(temperature_fields), temperature_fields},
    {"faults", offsetof(zet_simulator_scene_t, fault_count), offsetof(zet_simulator_scene_t, faults),
     sizeof(fault_record), ZET_SIMULATOR_MAX_FAULTS, count_of(fault_fields), fault_fields},
};

const char *const scene_fault_words[scene_fault_word_count] = {
    "absent_sensor",  "failing_calibration", "failing_prepare", "failing_measure",
    "lost_interrupt", "failing_read",        "slow_link",
};

unsigned char *scene_entry(zet_simulator_scene_t &scene, const scene_section &section, uint32_t index)
{
    return reinterpret_cast<unsigned char *>(&scene) + section.entries_offset + index * section.entry_size;
}

double scene_field_get(const unsigned char *entry, const scene_field &field)
{
    float real = 0.0F;
    uint32_t whole = 0;
    switch (field.type)
    {
    case field_type::real:
        std::memcpy(&real, entry + field.offset, sizeof(real));
        return static_cast<double>(real);
    case field_type::whole:
        std::memcpy(&whole, entry + field.offset, sizeof(whole));
        return whole;
    case field_type::fault:
        break;
    }
    return entry[field.offset];
}

void scene_field_set(unsigned char *entry, const scene_field &field, double value)
{
    // A real number may be beyond the range of the whole ones.
    if (field.type == field_type::real)
    {
        const auto real = static_cast<float>(value);
        std::memcpy(entry + field.offset, &real, sizeof(real));
        return;
    }
    const auto whole = static_cast<uint32_t>(value);
    if (field.type == field_type::whole)
    {
        std::memcpy(entry + field.offset, &whole, sizeof(whole));
    }
    else
    {
        entry[field.offset] = static_cast<unsigned char>(whole);
    }
}

bool scene_value_is_valid(const scene_section &section, uint32_t index, const scene_field &field,
                          double value, const message &error)
{
    // Real numbers in single precision, as the scene stores them, so that the limits themselves are in the
    // range.
    const auto stored = static_cast<float>(value);
    const bool is_in_range = field.type == field_type::real ? stored >= static_cast<float>(field.lowest) &&
                                                                  stored <= static_cast<float>(field.highest)
                                                            : value >= field.lowest && value <= field.highest;
    if (is_in_range)
    {
        return true;
    }
    return refuse(error, "%s[%lu].%s is %s, but must be a number from %s to %s", section.name,
                  static_cast<unsigned long>(index), field.name,
                  text_beside(value, {field.lowest, field.highest}).text, text_of(field.lowest).text,
                  text_of(field.highest).text);
}

} // namespace zet_simulator

bool zet_simulator_scene_is_valid(const zet_simulator_scene_t *scene, char *error, size_t error_size)
{
    const message message = {error, error_size};
    for (const scene_section &section : scene_sections)
    {
        if (!is_section_valid(*scene, section, message))
        {
            return false;
        }
    }
    return are_entries_consistent(*scene, message);
}

bool zet_simulator_scene_fits_board(const zet_simulator_scene_t *scene, uint16_t sensor_count, char *error,
                                    size_t error_size)
{
    for (const scene_section &section : scene_sections)
    {
        if (!does_section_fit(*scene, section, sensor_count, {error, error_size}))
        {
            return false;
        }
    }
    return true;
}
