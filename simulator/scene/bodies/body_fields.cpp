/** @file
 * The fields of bodies in a scene file: names and ranges.
 */
#include "scene/bodies/bodies.h"

namespace
{

using namespace zet_simulator;

constexpr float longest_time_s = 1.0e6F;
constexpr float farthest_m = 1000.0F;

/** Returns a field that need not be given. */
constexpr scene_field optional_field(const char *name, size_t offset, float lowest, float highest)
{
    return {name, static_cast<uint16_t>(offset), field_type::real, false, lowest, highest};
}

/** Returns a field that must be given. */
constexpr scene_field required_field(const char *name, size_t offset, float lowest, float highest)
{
    return {name, static_cast<uint16_t>(offset), field_type::real, true, lowest, highest};
}

/** Returns a field with a whole number that need not be given. */
constexpr scene_field whole_field(const char *name, size_t offset, float lowest, float highest)
{
    return {name, static_cast<uint16_t>(offset), field_type::whole, false, lowest, highest};
}

constexpr scene_field sensor = whole_field("sensor", offsetof(body, sensor_id), 0.0F, UINT16_MAX);
constexpr scene_field kind = {"kind", offsetof(body, kind), field_type::body, true,
                              0.0F,   body_kind_count - 1U};
constexpr scene_field enter = optional_field("enter_s", offsetof(body, enter_s), 0.0F, longest_time_s);
constexpr scene_field leave = optional_field("leave_s", offsetof(body, leave_s), 0.0F, longest_time_s);
constexpr scene_field strength = optional_field("strength_m2", offsetof(body, strength_m2), 0.001F, 10000.0F);
constexpr scene_field distance = required_field("distance_m", offsetof(body, distance_m), 0.05F, farthest_m);
constexpr scene_field variability = optional_field("variability", offsetof(body, variability), 0.0F, 0.5F);

/** Returns the field of the rate of a motion. */
constexpr scene_field rate_field(float lowest, float highest)
{
    return optional_field("rate_per_min", offsetof(body, rate_per_min), lowest, highest);
}

/** Returns the field of the amplitude of a motion. */
constexpr scene_field amplitude_field(float highest)
{
    return optional_field("amplitude_m", offsetof(body, amplitude_m), 0.0F, highest);
}

/** Returns the field of the number of points. */
constexpr scene_field points_field(float highest)
{
    return whole_field("points", offsetof(body, points), 1.0F, highest);
}

constexpr scene_field breathing_fields[] = {
    sensor,
    kind,
    distance,
    strength,
    enter,
    leave,
    rate_field(3.0F, 60.0F),
    amplitude_field(0.05F),
    variability,
    optional_field("heart_rate_per_min", offsetof(body, heart_rate_per_min), 30.0F, 220.0F),
    optional_field("heart_amplitude_m", offsetof(body, heart_amplitude_m), 0.0F, 0.005F),
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
    optional_field("speed_m_s", offsetof(body, speed_m_s), 0.3F, 2.2F),
    optional_field("height_m", offsetof(body, height_m), 0.8F, 2.3F),
    whole_field("legs", offsetof(body, legs), 1.0F, 6.0F),
};

constexpr scene_field surface_fields[] = {
    sensor,
    kind,
    distance,
    optional_field("reflectivity", offsetof(body, reflectivity), 0.001F, 1.0F),
    enter,
    leave,
    rate_field(1.0F, 600.0F),
    amplitude_field(0.1F),
    optional_field("stirrer_m2", offsetof(body, stirrer_m2), 0.001F, 100.0F),
    optional_field("stirrer_radius_m", offsetof(body, stirrer_radius_m), 0.01F, 10.0F),
    optional_field("stirrer_rate_per_min", offsetof(body, stirrer_rate_per_min), 1.0F, 1000.0F),
};

constexpr scene_field fan_fields[] = {
    sensor,
    kind,
    distance,
    strength,
    enter,
    leave,
    rate_field(1.0F, 3000.0F),
    optional_field("radius_m", offsetof(body, radius_m), 0.01F, 5.0F),
    points_field(12.0F),
};

constexpr scene_field curtain_fields[] = {
    sensor,
    kind,
    distance,
    strength,
    enter,
    leave,
    rate_field(1.0F, 120.0F),
    amplitude_field(0.5F),
    points_field(16.0F),
};

constexpr scene_field clutter_fields[] = {
    sensor,
    kind,
    required_field("nearest_m", offsetof(body, nearest_m), 0.05F, farthest_m),
    required_field("farthest_m", offsetof(body, farthest_m), 0.05F, farthest_m),
    strength,
    enter,
    leave,
    points_field(48.0F),
    whole_field("seed", offsetof(body, seed), 0.0F, 1.0e8F),
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
