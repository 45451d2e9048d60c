/** @file
 * Bodies: things that consist of several targets, into which they are expanded when a scene file is read.
 */
#ifndef ZET_SIMULATOR_BODIES_H
#define ZET_SIMULATOR_BODIES_H

#include "scene/scene_fields.h"

namespace zet_simulator
{

/** What a body can be. */
enum class body_kind : uint8_t
{
    breathing, /**< a chest that breathes, with a heart */
    walker,    /**< a walking person */
    surface,   /**< a liquid with ripples, and a stirrer */
    fan,       /**< rotating blades */
    curtain,   /**< cloth that sways */
    clutter,   /**< things that stand still at random distances */
};

constexpr uint32_t body_kind_count = static_cast<uint32_t>(body_kind::clutter) + 1U;

/** The word for each kind of body in a scene file. */
extern const char *const body_words[body_kind_count];

/** A body as a scene file describes it; each kind uses some of the values. */
struct body
{
    uint32_t sensor_id;
    body_kind kind;
    float distance_m;
    float place_m[3];
    float to_m[2]; /**< x and y of the other end of a path */
    float strength_m2;
    float reflectivity;
    float enter_s;
    float leave_s;
    float rate_per_min;
    float amplitude_m;
    float variability; /**< largest relative difference of the rate from its mean */
    float heart_rate_per_min;
    float heart_amplitude_m;
    float speed_m_s;
    float height_m;
    float radius_m;
    float stirrer_m2; /**< radar cross-section of the stirrer of a surface; 0 for none */
    float stirrer_radius_m;
    float stirrer_rate_per_min;
    float nearest_m;
    float farthest_m;
    uint32_t legs; /**< how often a walker goes from one end of the path to the other */
    uint32_t points;
    uint32_t seed;
};

/** The fields of each kind of body. */
extern const scene_section body_sections[body_kind_count];

/** Returns a body with the values that a scene file need not give. */
body body_with_defaults(body_kind kind);

/**
 * Adds the targets of a body to a scene.
 *
 * @param place   of the body, for the message
 * @param report  receives what is wrong
 * @return false when the scene has no room for them, or fields of the body do not fit together
 */
bool body_expand(const body &body, const scene_place &place, zet_simulator_scene_t &scene,
                 scene_report &report);

} // namespace zet_simulator

#endif
