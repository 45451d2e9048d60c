/** @file
 * The fields of a scene, and the check of a complete scene against them.
 */
#include "scene/scene_fields.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "common/number_text.h"

namespace
{

using namespace zet_simulator;

constexpr float highest_sensor_id = UINT16_MAX;
constexpr float highest_count = 1.0e8F;
constexpr float longest_time_s = 1.0e6F;

/** Returns the field that every entry has, with its offset in the entry. */
constexpr scene_field sensor_field(size_t offset)
{
    return {"sensor", static_cast<uint16_t>(offset), field_type::whole, false, 0.0F, highest_sensor_id};
}

constexpr float farthest_m = 1000.0F;
constexpr float fastest_m_s = 100.0F;

/** Returns a field that need not be given. */
constexpr scene_field real_field(const char *name, size_t offset, float lowest, float highest)
{
    return {name, static_cast<uint16_t>(offset), field_type::real, false, lowest, highest};
}

using target_record = zet_simulator_target_t;
constexpr scene_field target_fields[] = {
    sensor_field(offsetof(target_record, sensor_id)),
    real_field("distance_m", offsetof(target_record, distance_m), 0.01F, farthest_m),
    real_field("strength_m2", offsetof(target_record, strength_m2), 0.001F, 10000.0F),
    real_field("reflectivity", offsetof(target_record, reflectivity), 0.001F, 1.0F),
    real_field("velocity_m_s", offsetof(target_record, velocity_m_s), -fastest_m_s, fastest_m_s),
    real_field("oscillation_amplitude_m", offsetof(target_record, oscillation_amplitude_m), 0.0F, 10.0F),
    real_field("oscillation_frequency_hz", offsetof(target_record, oscillation_frequency_hz), 0.0F, 1000.0F),
    real_field("nearest_m", offsetof(target_record, nearest_m), 0.0F, farthest_m),
    real_field("farthest_m", offsetof(target_record, farthest_m), 0.0F, farthest_m),
    real_field("enter_s", offsetof(target_record, enter_s), 0.0F, longest_time_s),
    real_field("leave_s", offsetof(target_record, leave_s), 0.0F, longest_time_s),
    {"fluctuation", offsetof(target_record, fluctuation), field_type::fluctuation, false, 0.0F,
     ZET_SIMULATOR_FLUCTUATION_SWERLING_3},
#ifndef ZET_SIMULATOR_SMALL_SCENE
    real_field("x_m", offsetof(target_record, place_m[0]), -farthest_m, farthest_m),
    real_field("y_m", offsetof(target_record, place_m[1]), -farthest_m, farthest_m),
    real_field("z_m", offsetof(target_record, place_m[2]), -farthest_m, farthest_m),
    real_field("x_velocity_m_s", offsetof(target_record, place_velocity_m_s[0]), -fastest_m_s, fastest_m_s),
    real_field("y_velocity_m_s", offsetof(target_record, place_velocity_m_s[1]), -fastest_m_s, fastest_m_s),
    real_field("z_velocity_m_s", offsetof(target_record, place_velocity_m_s[2]), -fastest_m_s, fastest_m_s),
    {"body", offsetof(target_record, body), field_type::whole, false, 0.0F, ZET_SIMULATOR_MAX_TARGETS},
#endif
};

#ifndef ZET_SIMULATOR_SMALL_SCENE
using oscillation_record = zet_simulator_oscillation_t;
constexpr scene_field oscillation_fields[] = {
    real_field("amplitude_m", offsetof(oscillation_record, amplitude_m), -10.0F, 10.0F),
    {"frequency_hz", offsetof(oscillation_record, frequency_hz), field_type::real, true, 0.0F, 1000.0F},
    real_field("phase_turns", offsetof(oscillation_record, phase_turns), -1.0F, 1.0F),
    real_field("wander_turns", offsetof(oscillation_record, wander_turns), 0.0F, 100.0F),
    real_field("wander_frequency_hz", offsetof(oscillation_record, wander_frequency_hz), 0.0F, 1000.0F),
    real_field("amplitude_x_m", offsetof(oscillation_record, amplitude_xyz_m[0]), -10.0F, 10.0F),
    real_field("amplitude_y_m", offsetof(oscillation_record, amplitude_xyz_m[1]), -10.0F, 10.0F),
    real_field("amplitude_z_m", offsetof(oscillation_record, amplitude_xyz_m[2]), -10.0F, 10.0F),
};

using keyframe_record = zet_simulator_keyframe_t;
constexpr scene_field keyframe_fields[] = {
    {"time_s", offsetof(keyframe_record, time_s), field_type::real, true, 0.0F, longest_time_s},
    real_field("distance_m", offsetof(keyframe_record, position[0]), -farthest_m, farthest_m),
    real_field("x_m", offsetof(keyframe_record, position[0]), -farthest_m, farthest_m),
    real_field("y_m", offsetof(keyframe_record, position[1]), -farthest_m, farthest_m),
    real_field("z_m", offsetof(keyframe_record, position[2]), -farthest_m, farthest_m),
};

using pose_record = zet_simulator_pose_t;
constexpr scene_field pose_fields[] = {
    sensor_field(offsetof(pose_record, sensor_id)),
    {"board", offsetof(pose_record, board), field_type::whole, false, 0.0, UINT16_MAX},
    real_field("x_m", offsetof(pose_record, place_m[0]), -farthest_m, farthest_m),
    real_field("y_m", offsetof(pose_record, place_m[1]), -farthest_m, farthest_m),
    real_field("z_m", offsetof(pose_record, place_m[2]), -farthest_m, farthest_m),
    real_field("direction_x", offsetof(pose_record, direction[0]), -1.0F, 1.0F),
    real_field("direction_y", offsetof(pose_record, direction[1]), -1.0F, 1.0F),
    real_field("direction_z", offsetof(pose_record, direction[2]), -1.0F, 1.0F),
    real_field("beam_deg", offsetof(pose_record, beam_deg), 1.0F, 170.0F),
};
#endif

using interferer_record = zet_simulator_interferer_t;
constexpr scene_field interferer_fields[] = {
    sensor_field(offsetof(interferer_record, sensor_id)),
    {"strength", offsetof(interferer_record, strength), field_type::real, true, 0.01F, 1.0e6F},
    {"start_s", offsetof(interferer_record, start_s), field_type::real, false, 0.0F, longest_time_s},
    {"duration_s", offsetof(interferer_record, duration_s), field_type::real, false, 0.0F, longest_time_s},
    {"period_s", offsetof(interferer_record, period_s), field_type::real, false, 0.0F, longest_time_s},
};

using temperature_record = zet_simulator_temperature_t;
constexpr scene_field temperature_fields[] = {
    sensor_field(offsetof(temperature_record, sensor_id)),
    {"celsius", offsetof(temperature_record, celsius), field_type::real, true, -40.0F, 125.0F},
    {"drift_celsius_per_s", offsetof(temperature_record, drift_celsius_per_s), field_type::real, false,
     -100.0F, 100.0F},
};

using fault_record = zet_simulator_fault_t;
constexpr scene_field fault_fields[] = {
    sensor_field(offsetof(fault_record, sensor_id)),
    {"kind", offsetof(fault_record, kind), field_type::fault, true, 0.0F, ZET_SIMULATOR_FAULT_SLOW_LINK},
    {"skip", offsetof(fault_record, skip), field_type::whole, false, 0.0F, highest_count},
    {"count", offsetof(fault_record, count), field_type::whole, false, 0.0F, highest_count},
    {"bytes_per_second", offsetof(fault_record, bytes_per_second), field_type::whole, false, 0.0F,
     highest_count},
};

using hardware_record = zet_simulator_hardware_t;
constexpr scene_field hardware_fields[] = {
    sensor_field(offsetof(hardware_record, sensor_id)),
    real_field("phase_noise_rad_per_m", offsetof(hardware_record, phase_noise_rad_per_m), 0.0F, 1.0F),
    real_field("phase_drift_rad_per_m", offsetof(hardware_record, phase_drift_rad_per_m), 0.0F, 1.0F),
    real_field("sidelobe_level", offsetof(hardware_record, sidelobe_level), 0.0F, 0.5F),
    real_field("ringing_level", offsetof(hardware_record, ringing_level), 0.0F, 0.5F),
    real_field("delay_drift_mm_per_k", offsetof(hardware_record, delay_drift_mm_per_k), -10.0F, 10.0F),
    real_field("gain_drift_per_k", offsetof(hardware_record, gain_drift_per_k), -0.02F, 0.02F),
    real_field("bursts_per_s", offsetof(hardware_record, bursts_per_s), 0.0F, 1000.0F),
    real_field("burst_s", offsetof(hardware_record, burst_s), 0.0F, 1.0F),
    real_field("burst_strength", offsetof(hardware_record, burst_strength), 0.0F, 1.0e6F),
};

/** Returns the number of rows of a table of fields. */
template <size_t count> constexpr uint8_t count_of(const scene_field (&)[count])
{
    return static_cast<uint8_t>(count);
}

/** Returns the place of an entry. */
scene_place place_in(const scene_section &section, uint32_t index)
{
    return {section.name, index};
}

/** Checks the turning points and the times of a target. */
bool are_limits_consistent(const target_record &target, const scene_place &entry, scene_report &report)
{
    if (target.leave_s != 0.0F && target.leave_s <= target.enter_s)
    {
        return refuse_beside(report, entry, "leave_s", target.leave_s, "more than enter_s", target.enter_s);
    }
    if (target.farthest_m <= target.nearest_m)
    {
        const bool never_turns = target.nearest_m == 0.0F && target.farthest_m == 0.0F;
        return never_turns || refuse_beside(report, entry, "farthest_m", target.farthest_m,
                                            "more than nearest_m", target.nearest_m);
    }
    if (target.distance_m < target.nearest_m)
    {
        return refuse_beside(report, entry, "distance_m", target.distance_m, "at least nearest_m",
                             target.nearest_m);
    }
    return target.distance_m <= target.farthest_m ||
           refuse_beside(report, entry, "distance_m", target.distance_m, "at most farthest_m",
                         target.farthest_m);
}

#ifdef ZET_SIMULATOR_SMALL_SCENE
/** Checks that a target has a distance. */
bool is_path_consistent(const zet_simulator_scene_t & /*scene*/, const target_record &target,
                        const scene_place &entry, scene_report &report)
{
    return target.distance_m != 0.0F || refuse_at(report, entry, nullptr, " needs distance_m");
}
#else
/** A value of an entry. */
struct named_value
{
    const char *key;
    float value;
};

/** Checks that values are not given, because a target has a place or because it has none. */
template <size_t count>
bool are_absent(const named_value (&values)[count], const char *reason, const scene_place &entry,
                scene_report &report)
{
    for (const named_value &each : values)
    {
        if (each.value != 0.0F)
        {
            return refuse_at(report, entry, each.key, " is %s, but must be absent, because the target has %s",
                             text_beside(static_cast<double>(each.value), {0.0}).text, reason);
        }
    }
    return true;
}

constexpr const char *no_place = "no place (x_m, y_m, z_m)";

/** Checks that a target without a place does not move in space, and none of its oscillations. */
bool is_along_sight(const zet_simulator_scene_t &scene, const target_record &target, const scene_place &entry,
                    scene_report &report)
{
    const named_value of_target[] = {{"x_m", target.place_m[0]},
                                     {"y_m", target.place_m[1]},
                                     {"z_m", target.place_m[2]},
                                     {"x_velocity_m_s", target.place_velocity_m_s[0]},
                                     {"y_velocity_m_s", target.place_velocity_m_s[1]},
                                     {"z_velocity_m_s", target.place_velocity_m_s[2]}};
    bool is_along = are_absent(of_target, no_place, entry, report);
    for (uint32_t i = 0; is_along && i < target.oscillation_count; ++i)
    {
        const float(&amplitudes)[3] = scene.oscillations[target.first_oscillation + i].amplitude_xyz_m;
        const named_value of_oscillation[] = {{"amplitude_x_m", amplitudes[0]},
                                              {"amplitude_y_m", amplitudes[1]},
                                              {"amplitude_z_m", amplitudes[2]}};
        is_along = are_absent(of_oscillation, no_place, {entry.list, entry.index, scene_oscillations.name, i},
                              report);
    }
    return is_along;
}

/** Checks that a target with a place does not have what belongs to a distance. */
bool is_in_space(const target_record &target, const scene_place &entry, scene_report &report)
{
    const named_value distances[] = {{"distance_m", target.distance_m},
                                     {"velocity_m_s", target.velocity_m_s},
                                     {"nearest_m", target.nearest_m},
                                     {"farthest_m", target.farthest_m}};
    return are_absent(distances, "a place (x_m, y_m, z_m)", entry, report);
}

/** Checks that the lists of a target are within those of the scene, and that its track has ascending times.
 */
bool are_lists_consistent(const zet_simulator_scene_t &scene, const target_record &target,
                          const scene_place &entry, scene_report &report)
{
    if (target.first_oscillation + target.oscillation_count > scene.oscillation_count ||
        target.first_keyframe + target.keyframe_count > scene.keyframe_count)
    {
        return refuse_at(report, entry, nullptr,
                         " has oscillations or keyframes that the scene does not have");
    }
    const zet_simulator_keyframe_t *track = &scene.keyframes[target.first_keyframe];
    for (uint32_t i = 1; i < target.keyframe_count; ++i)
    {
        if (track[i].time_s <= track[i - 1U].time_s)
        {
            return refuse_beside(report, {entry.list, entry.index, scene_keyframes.name, i}, "time_s",
                                 track[i].time_s, "more than that of the entry before", track[i - 1U].time_s);
        }
    }
    return true;
}

/** Checks where a target is and how it moves. */
bool is_path_consistent(const zet_simulator_scene_t &scene, const target_record &target,
                        const scene_place &entry, scene_report &report)
{
    if (!target.has_place && target.distance_m == 0.0F && target.keyframe_count == 0U)
    {
        return refuse_at(report, entry, nullptr,
                         " has no position, but must have distance_m, a place (x_m, y_m, z_m) or track");
    }
    return are_lists_consistent(scene, target, entry, report) &&
           (target.has_place ? is_in_space(target, entry, report)
                             : is_along_sight(scene, target, entry, report));
}
#endif

/** Checks that a target is either a point or a surface. */
bool is_point_or_surface(const target_record &target, const scene_place &entry, scene_report &report)
{
    const bool is_point = target.strength_m2 != 0.0F;
    return is_point != (target.reflectivity != 0.0F) ||
           refuse_at(report, entry, nullptr, " has %s of strength_m2 and reflectivity, but needs one",
                     is_point ? "both" : "none");
}

/** Checks the fields of a target against each other. */
bool is_consistent(const zet_simulator_scene_t &scene, const target_record &target, const scene_place &entry,
                   scene_report &report)
{
    return is_path_consistent(scene, target, entry, report) && is_point_or_surface(target, entry, report) &&
           are_limits_consistent(target, entry, report);
}

/** Checks the fields of an interferer against each other. */
bool is_consistent(const interferer_record &interferer, const scene_place &entry, scene_report &report)
{
    if (interferer.period_s > 0.0F &&
        (interferer.duration_s == 0.0F || interferer.duration_s > interferer.period_s))
    {
        return refuse_beside(report, entry, "duration_s", interferer.duration_s,
                             "more than 0 and at most period_s", interferer.period_s);
    }
    return true;
}

/** Checks the fields of a fault against each other. */
bool is_consistent(const fault_record &fault, const scene_place &entry, scene_report &report)
{
    const bool is_slow = fault.kind == ZET_SIMULATOR_FAULT_SLOW_LINK;
    return is_slow == (fault.bytes_per_second != 0U) ||
           refuse_at(report, entry, "bytes_per_second",
                     " is %lu, but must be 1 or more for slow_link, otherwise 0",
                     static_cast<unsigned long>(fault.bytes_per_second));
}

/** Checks the fields of hardware against each other. */
bool is_consistent(const hardware_record &hardware, const scene_place &entry, scene_report &report)
{
    const float share = hardware.bursts_per_s * hardware.burst_s;
    return hardware.bursts_per_s <= 0.0F || (share > 0.0F && share <= 1.0F) ||
           refuse_beside(report, entry, "burst_s", hardware.burst_s,
                         "more than 0 and at most 1 / bursts_per_s", 1.0F / hardware.bursts_per_s);
}

/** Checks the fields of each entry against each other. */
bool are_entries_consistent(const zet_simulator_scene_t &scene, scene_report &report)
{
    for (uint32_t i = 0; i < scene.target_count; ++i)
    {
        if (!is_consistent(scene, scene.targets[i], place_in(scene_sections[0], i), report))
        {
            return false;
        }
    }
    for (uint32_t i = 0; i < scene.interferer_count; ++i)
    {
        if (!is_consistent(scene.interferers[i], place_in(scene_sections[1], i), report))
        {
            return false;
        }
    }
    for (uint32_t i = 0; i < scene.fault_count; ++i)
    {
        if (!is_consistent(scene.faults[i], place_in(scene_sections[3], i), report))
        {
            return false;
        }
    }
    for (uint32_t i = 0; i < scene.hardware_count; ++i)
    {
        if (!is_consistent(scene.hardware[i], place_in(scene_hardware, i), report))
        {
            return false;
        }
    }
    return true;
}

/** Returns the address of an entry of a list. */
const unsigned char *entry_of(const zet_simulator_scene_t &scene, const scene_section &section,
                              uint32_t index)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(&scene);
    return bytes + section.entries_offset + index * section.entry_size;
}

/** Checks the entries of a list one by one. */
bool is_section_valid(const zet_simulator_scene_t &scene, const scene_section &section, scene_report &report)
{
    const uint32_t count = scene_count_get(scene, section);
    if (count > section.capacity)
    {
        return refuse_at(report, place_in(section, section.capacity), nullptr,
                         " is one of %lu entries, but the most is %lu", static_cast<unsigned long>(count),
                         static_cast<unsigned long>(section.capacity));
    }
    for (uint32_t index = 0; index < count; ++index)
    {
        const unsigned char *entry = entry_of(scene, section, index);
        for (uint32_t i = 0; i < section.field_count; ++i)
        {
            const scene_field &field = section.fields[i];
            const double value = scene_field_get(entry, field);
            const bool is_absent = !field.required && value == 0.0;
            if (!is_absent && !scene_value_is_valid(place_in(section, index), field, value, report))
            {
                return false;
            }
        }
    }
    return true;
}

/** Checks that a board has a sensor. */
bool has_sensor(const scene_place &entry, uint32_t sensor_id, uint16_t sensor_count, scene_report &report)
{
    return sensor_id <= sensor_count ||
           refuse_at(report, entry, "sensor", " is %lu, but the number of sensors on the board is %lu",
                     static_cast<unsigned long>(sensor_id), static_cast<unsigned long>(sensor_count));
}

/** Checks that a board has the sensors that the entries of a list name. */
bool does_section_fit(const zet_simulator_scene_t &scene, const scene_section &section, uint16_t sensor_count,
                      scene_report &report)
{
    for (uint32_t index = 0; index < scene_count_get(scene, section); ++index)
    {
        const auto sensor_id =
            static_cast<uint32_t>(scene_field_get(entry_of(scene, section, index), section.fields[0]));
        if (!has_sensor(place_in(section, index), sensor_id, sensor_count, report))
        {
            return false;
        }
    }
    return true;
}

/** Checks a scene. */
bool is_valid(const zet_simulator_scene_t &scene, scene_report &report)
{
    for (const scene_section &section : scene_sections)
    {
        if (!is_section_valid(scene, section, report))
        {
            return false;
        }
    }
#ifndef ZET_SIMULATOR_SMALL_SCENE
    if (!is_section_valid(scene, scene_oscillations, report) ||
        !is_section_valid(scene, scene_keyframes, report))
    {
        return false;
    }
#endif
    return are_entries_consistent(scene, report);
}

#ifdef ZET_SIMULATOR_SMALL_SCENE
/** Writes the place of an entry. */
void write_place(const scene_report &report, const scene_place &entry)
{
    static_cast<void>(refuse(report.text, "%s[%lu]", entry.list, static_cast<unsigned long>(entry.index)));
}
#else
/** Returns the format of a name with an index. */
constexpr const char *format_of_name(uint32_t index)
{
    return index == no_index ? "%s" : "%s[%lu]";
}

/** Writes the place of an entry. */
void write_place(const scene_report &report, const scene_place &entry)
{
    static_cast<void>(refuse(report.text, format_of_name(entry.index),
                             entry.list != nullptr ? entry.list : "the scene",
                             static_cast<unsigned long>(entry.index)));
    if (entry.inner != nullptr)
    {
        append(report.text, ".");
        append(report.text, format_of_name(entry.inner_index), entry.inner,
               static_cast<unsigned long>(entry.inner_index));
    }
}
#endif

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
    {"hardware", offsetof(zet_simulator_scene_t, hardware_count), offsetof(zet_simulator_scene_t, hardware),
     sizeof(hardware_record), ZET_SIMULATOR_MAX_HARDWARE, count_of(hardware_fields), hardware_fields},
#ifndef ZET_SIMULATOR_SMALL_SCENE
    {"sensors", offsetof(zet_simulator_scene_t, pose_count), offsetof(zet_simulator_scene_t, poses),
     sizeof(pose_record), ZET_SIMULATOR_MAX_POSES, count_of(pose_fields), pose_fields},
#endif
};

const scene_section &scene_hardware = scene_sections[4];

#ifndef ZET_SIMULATOR_SMALL_SCENE
const scene_section scene_oscillations = {"oscillations",
                                          offsetof(zet_simulator_scene_t, oscillation_count),
                                          offsetof(zet_simulator_scene_t, oscillations),
                                          sizeof(oscillation_record),
                                          ZET_SIMULATOR_MAX_OSCILLATIONS,
                                          count_of(oscillation_fields),
                                          oscillation_fields};

const scene_section scene_keyframes = {"track",
                                       offsetof(zet_simulator_scene_t, keyframe_count),
                                       offsetof(zet_simulator_scene_t, keyframes),
                                       sizeof(keyframe_record),
                                       ZET_SIMULATOR_MAX_KEYFRAMES,
                                       count_of(keyframe_fields),
                                       keyframe_fields};
#endif

const char *const scene_fault_words[scene_fault_word_count] = {
    "absent_sensor",  "failing_calibration", "failing_prepare", "failing_measure",
    "lost_interrupt", "failing_read",        "slow_link",
};

const char *const scene_fluctuation_words[scene_fluctuation_word_count] = {"none", "swerling_1",
                                                                           "swerling_3"};

uint16_t scene_count_get(const zet_simulator_scene_t &scene, const scene_section &section)
{
    uint16_t count = 0;
    std::memcpy(&count, reinterpret_cast<const unsigned char *>(&scene) + section.count_offset,
                sizeof(count));
    return count;
}

void scene_count_set(zet_simulator_scene_t &scene, const scene_section &section, uint16_t count)
{
    std::memcpy(reinterpret_cast<unsigned char *>(&scene) + section.count_offset, &count, sizeof(count));
}

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
    case field_type::fluctuation:
    case field_type::body:
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

bool refuse_at(scene_report &report, const scene_place &entry, const char *key, const char *format, ...)
{
#ifndef ZET_SIMULATOR_SMALL_SCENE
    report.place = entry;
    report.key = key;
#endif
    write_place(report, entry);
    if (key != nullptr)
    {
        append(report.text, ".%s", key);
    }
    va_list arguments;
    va_start(arguments, format);
    append_arguments(report.text, format, arguments);
    va_end(arguments);
    return false;
}

bool refuse_beside(scene_report &report, const scene_place &entry, const char *key, float value,
                   const char *expected, float other)
{
    const auto found = static_cast<double>(value);
    const auto bound = static_cast<double>(other);
    return refuse_at(report, entry, key, " is %s, but must be %s, which is %s",
                     text_beside(found, {bound}).text, expected, text_of(bound).text);
}

bool scene_value_is_valid(const scene_place &entry, const scene_field &field, double value,
                          scene_report &report)
{
    // Real numbers in single precision, as the scene stores them, so that the limits themselves are in the
    // range.
    const double stored =
        field.type == field_type::real ? static_cast<double>(static_cast<float>(value)) : value;
    const auto lowest = static_cast<double>(field.lowest);
    const auto highest = static_cast<double>(field.highest);
    return (stored >= lowest && stored <= highest) ||
           refuse_at(report, entry, field.name, " is %s, but must be a number from %s to %s",
                     text_beside(value, {lowest, highest}).text, text_of(lowest).text, text_of(highest).text);
}

#ifndef ZET_SIMULATOR_SMALL_SCENE
bool scene_sensor_is_valid(const scene_place &entry, uint32_t sensor_id, uint16_t sensor_count,
                           scene_report &report)
{
    return has_sensor(entry, sensor_id, sensor_count, report);
}

bool scene_is_valid(const zet_simulator_scene_t &scene, scene_report &report)
{
    return is_valid(scene, report);
}
#endif

} // namespace zet_simulator

bool zet_simulator_scene_is_valid(const zet_simulator_scene_t *scene, char *error, size_t error_size)
{
    scene_report report = {{error, error_size}};
    return is_valid(*scene, report);
}

bool zet_simulator_scene_fits_board(const zet_simulator_scene_t *scene, uint16_t sensor_count, char *error,
                                    size_t error_size)
{
    scene_report report = {{error, error_size}};
    for (const scene_section &section : scene_sections)
    {
        if (!does_section_fit(*scene, section, sensor_count, report))
        {
            return false;
        }
    }
    return true;
}

#ifndef ZET_SIMULATOR_SMALL_SCENE
bool zet_simulator_scene_select_board(zet_simulator_scene_t *scene, uint16_t board, char *error,
                                      size_t error_size)
{
    uint32_t other_board = 0;
    bool has_own = false;
    uint16_t kept = 0;
    for (uint32_t i = 0; i < scene->pose_count; ++i)
    {
        const zet_simulator_pose_t pose = scene->poses[i];
        if (pose.board != 0U && pose.board != board)
        {
            other_board = pose.board;
            continue;
        }
        has_own |= pose.board != 0U;
        scene->poses[kept++] = pose;
    }
    scene->pose_count = kept;
    return has_own || other_board == 0U ||
           refuse({error, error_size}, "sensors has entries for boards, such as %lu, but none for board %u",
                  static_cast<unsigned long>(other_board), static_cast<unsigned>(board));
}
#endif
