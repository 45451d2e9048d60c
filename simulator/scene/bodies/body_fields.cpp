/** @file
 * The fields of bodies in a scene file: names and ranges.
 */
#include "scene/bodies/bodies.h"

namespace
{

using namespace zet_simulator;

constexpr double longest_time_s = 1.0e6;
constexpr double farthest_m = 1000.0;

/** Returns a field that need not be given. */
constexpr scene_field optional_field(const char *name, size_t offset, double lowest, double highest)
{
    return {name, static_cast<uint16_t>(offset), field_type::real, false, lowest, highest};
}

/** Returns a field that must be given. */
constexpr scene_field required_field(const char *name, size_t offset, double lowest, double highest)
{
    return {name, static_cast<uint16_t>(offset), field_type::real, true, lowest, highest};
}

/** Returns a field with a whole number that need not be given. */
constexpr scene_field whole_field(const char *name, size_t offset, double lowest, double highest)
{
    return {name, static_cast<uint16_t>(offset), field_type::whole, false, lowest, highest};
}

constexpr scene_field sensor = whole_field("sensor", offsetof(body, sensor_id), 0.0, UINT16_MAX);
constexpr scene_field kind = {"kind", offsetof(body, kind), field_type::body, true,
                              0.0,    body_kind_count - 1U};
constexpr scene_field enter = optional_field("enter_s", offsetof(body, enter_s), 0.0, longest_time_s);
constexpr scene_field leave = optional_field("leave_s", offsetof(body, leave_s), 0.0, longest_time_s);
constexpr scene_field strength = optional_field("strength_m2", offsetof(body, strength_m2), 0.001, 10000.0);
constexpr scene_field distance = required_field("distance_m", offsetof(body, distance_m), 0.05, farthest_m);
constexpr scene_field variability = optional_field("variability", offsetof(body, variability), 0.0, 0.5);

/** Returns the field of the rate of a motion. */
constexpr scene_field rate_field(double lowest, double highest)
{
    return optional_field("rate_per_min", offsetof(body, rate_per_min), lowest, highest);
}

/** Returns the field of the amplitude of a motion. */
constexpr scene_field amplitude_field(double highest)
{
    return optional_field("amplitude_m", offsetof(body, amplitude_m), 0.0, highest);
}

/** Returns the field of the number of points. */
constexpr scene_field points_field(double highest)
{
    return whole_field("points", offsetof(body, points), 1.0, highest);
}

constexpr scene_field breathing_fields[] = {
    sensor,
    kind,
    distance,
    strength,
    enter,
    leave,
    rate_field(3.0, 60.0),
    amplitude_field(0.05),
    variability,
    optional_field("heart_rate_per_min", offsetof(body, heart_rate_per_min), 30.0, 220.0),
    optional_field("heart_amplitude_m", offsetof(body, heart_amplitude_m), 0.0, 0.005),
};

constexpr scene_field walker_fields[] = {
    sensor,
    kind,
    optional_field("x_m", offsetof(body, place_m[0]), -farthest_m, farthest_m),
    required_field("y_m", offsetof(body, place_m[1]), -farthest_m, farthest_m),
    optional_field("z_m", offsetof(body, place_m[2]), -farthest_m, farthest_m),
    optional_field("to_x_m", offsetof(body, to_m[0]), -farthest_m, farthest_m),
    required_field("to_y_m", offsetof(body, to_m[1]), -farthest_m, farthest_m),
    strength,
    enter,
    optional_field("speed_m_s", offsetof(body, speed_m_s), 0.3, 2.2),
    optional_field("height_m", offsetof(body, height_m), 0.8, 2.3),
    whole_field("legs", offsetof(body, legs), 1.0, 6.0),
};

constexpr scene_field surface_fields[] = {
    sensor,
    kind,
    distance,
    optional_field("reflectivity", offsetof(body, reflectivity), 0.001, 1.0),
    enter,
    leave,
    rate_field(1.0, 600.0),
    amplitude_field(0.1),
    optional_field("stirrer_m2", offsetof(body, strength_m2), 0.001, 100.0),
    optional_field("stirrer_radius_m", offsetof(body, radius_m), 0.01, 10.0),
    optional_field("stirrer_rate_per_min", offsetof(body, heart_rate_per_min), 1.0, 1000.0),
};

constexpr scene_field fan_fields[] = {
    sensor,
    kind,
    distance,
    strength,
    enter,
    leave,
    rate_field(1.0, 3000.0),
    optional_field("radius_m", offsetof(body, radius_m), 0.01, 5.0),
    points_field(12.0),
};

constexpr scene_field curtain_fields[] = {
    sensor,
    kind,
    distance,
    strength,
    enter,
    leave,
    rate_field(1.0, 120.0),
    amplitude_field(0.5),
    points_field(16.0),
};

constexpr scene_field clutter_fields[] = {
    sensor,
    kind,
    required_field("nearest_m", offsetof(body, nearest_m), 0.05, farthest_m),
    required_field("farthest_m", offsetof(body, farthest_m), 0.05, farthest_m),
    strength,
    enter,
    leave,
    points_field(48.0),
    whole_field("seed", offsetof(body, seed), 0.0, 1.0e8),
};

/** Returns the table of a kind. */
template <size_t count> constexpr scene_section section_of(const scene_field (&fields)[count])
{
    return {"bodies", 0, 0, sizeof(body), 0, static_cast<uint8_t>(count), fields};
}

} // namespace

namespace zet_simulator
{

const char *const body_words[body_kind_count] = {"breathing", "walker",  "surface",
                                                 "fan",       "curtain", "clutter"};

const scene_section body_sections[body_kind_count] = {
    section_of(breathing_fields), section_of(walker_fields),  section_of(surface_fields),
    section_of(fan_fields),       section_of(curtain_fields), section_of(clutter_fields),
};

} // namespace zet_simulator
