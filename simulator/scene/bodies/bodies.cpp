/** @file
 * Expands bodies into targets.
 *
 * Amplitudes of chest and heart: a chest moves by 4 to 12 mm with each breath, and by 0.1 to 0.5 mm with each
 * heartbeat (A. Droitcour, "Non-contact measurement of heart and respiration rates with a single-chip
 * microwave Doppler radar", 2006, chapter 3).
 */
#include "scene/bodies/bodies.h"

#include <cmath>
#include <iterator>

#include "common/noise.h"
#include "common/number_text.h"
#include "scene/bodies/waveform.h"

namespace
{

using namespace zet_simulator;

/** The fractional part of the golden ratio: multiples of it never repeat, so sums of such sines do not
 * either. */
constexpr double golden = 0.6180339887498949;

constexpr double two_pi = 6.283185307179586;

/** A sine, as part of the motion of a target. */
struct sine
{
    double amplitude_m;
    double frequency_hz;
    double phase_turns;
};

/** Adds targets to a scene while there is room. */
class builder
{
public:
    explicit builder(zet_simulator_scene_t &scene) : scene_(scene)
    {
    }

    /** Returns whether everything had room. */
    [[nodiscard]] bool had_room() const
    {
        return missing_targets_ + missing_oscillations_ == 0U;
    }

    /** How many targets the scene would have. */
    [[nodiscard]] uint32_t target_count() const
    {
        return scene_.target_count + missing_targets_;
    }

    /** How many oscillations the scene would have. */
    [[nodiscard]] uint32_t oscillation_count() const
    {
        return scene_.oscillation_count + missing_oscillations_;
    }

    /** Adds a target at a distance. Returns where the targets beyond the room go when it has none. */
    zet_simulator_target_t &add(const body &body, double distance_m, double strength_m2)
    {
        if (scene_.target_count == ZET_SIMULATOR_MAX_TARGETS)
        {
            ++missing_targets_;
            return beyond_;
        }
        zet_simulator_target_t &target = scene_.targets[scene_.target_count++];
        target = {};
        target.sensor_id = body.sensor_id;
        target.enter_s = body.enter_s;
        target.leave_s = body.leave_s;
        target.distance_m = static_cast<float>(distance_m);
        target.strength_m2 = static_cast<float>(strength_m2);
        target.first_oscillation = scene_.oscillation_count;
        return target;
    }

    /** Adds an oscillation to the latest target, and returns it. */
    zet_simulator_oscillation_t &move(zet_simulator_target_t &target, const sine &sine)
    {
        if (scene_.oscillation_count == ZET_SIMULATOR_MAX_OSCILLATIONS)
        {
            ++missing_oscillations_;
            return beyond_oscillation_;
        }
        zet_simulator_oscillation_t &added = scene_.oscillations[scene_.oscillation_count++];
        added = {};
        added.amplitude_m = static_cast<float>(sine.amplitude_m);
        added.frequency_hz = static_cast<float>(sine.frequency_hz);
        added.phase_turns = static_cast<float>(sine.phase_turns);
        ++target.oscillation_count;
        return added;
    }

private:
    zet_simulator_scene_t &scene_;
    zet_simulator_target_t beyond_ = {};
    zet_simulator_oscillation_t beyond_oscillation_ = {};
    uint32_t missing_targets_ = 0;
    uint32_t missing_oscillations_ = 0;
};

/**
 * Adds a motion of an uneven rate. The rate differs by 2 pi wander f_w, which is the variability times the
 * rate; f_w is about an eighth of the rate.
 */
void add_uneven(builder &scene, zet_simulator_target_t &target, const sine &base, const waveform &shape,
                double variability)
{
    const double wander_hz = base.frequency_hz / (7.0 + golden);
    const double wander_turns = variability * base.frequency_hz / (two_pi * wander_hz);
    for (size_t i = 0; i < harmonic_count; ++i)
    {
        const auto multiple = static_cast<double>(i + 1U);
        zet_simulator_oscillation_t &added =
            scene.move(target, {base.amplitude_m * shape.harmonics[i].amplitude, base.frequency_hz * multiple,
                                shape.harmonics[i].phase_turns});
        added.wander_turns = static_cast<float>(wander_turns * multiple);
        added.wander_frequency_hz = static_cast<float>(wander_hz);
    }
}

/** Adds a chest that breathes, with the heart on the same point. Inhaling moves it towards the sensor. */
void add_breathing(builder &scene, const body &body)
{
    const waveform shape = breathing_waveform();
    const double amplitude_m = static_cast<double>(body.amplitude_m);
    zet_simulator_target_t &chest =
        scene.add(body, static_cast<double>(body.distance_m) - amplitude_m * shape.mean,
                  static_cast<double>(body.strength_m2));
    const double variability = static_cast<double>(body.variability);
    const double breaths_hz = static_cast<double>(body.rate_per_min) / 60.0;
    add_uneven(scene, chest, {-amplitude_m, breaths_hz, 0.0}, shape, variability);
    const double beats_hz = static_cast<double>(body.heart_rate_per_min) / 60.0;
    // Half of the movement from end to end, about a sixteenth of that of a breath.
    scene.move(chest, {static_cast<double>(body.heart_amplitude_m) / 2.0, beats_hz, 0.0});
}

/** One point of a walker. */
struct walker_point
{
    double height; /**< above the ground, relative to that of the person */
    double part;   /**< of the cross-section */
    double body;   /**< motion up, down and to and fro, relative to that of the body */
    double foot;   /**< motion along the path, relative to that of a foot */
    double
        shoulder; /**< distance from the shoulder, relative to the height of the person; 0 for no arm ... */
    double elbow; /**< ... and from the elbow */
    double phase_turns; /**< in the cycle */
};

/** Torso, head, elbows, hands, knees, feet. An arm swings with the leg of the other side. Lengths of limbs:
 * D. Winter, "Biomechanics and Motor Control of Human Movement", after Drillis and Contini. */
constexpr walker_point walker_points[] = {
    {0.70, 0.48, 1.0, 0.0, 0.0, 0.0, 0.0},     {0.93, 0.08, 1.0, 0.0, 0.0, 0.0, 0.0},
    {0.63, 0.05, 1.0, 0.0, 0.186, 0.0, 0.0},   {0.63, 0.05, 1.0, 0.0, 0.186, 0.0, 0.5},
    {0.47, 0.03, 1.0, 0.0, 0.386, 0.200, 0.0}, {0.47, 0.03, 1.0, 0.0, 0.386, 0.200, 0.5},
    {0.28, 0.10, 0.5, 0.5, 0.0, 0.0, 0.5},     {0.28, 0.10, 0.5, 0.5, 0.0, 0.0, 0.0},
    {0.04, 0.04, 0.0, 1.0, 0.0, 0.0, 0.5},     {0.04, 0.04, 0.0, 1.0, 0.0, 0.0, 0.0},
};

/** How a person walks at a speed. Phases are those of the contact of the right heel. */
struct gait
{
    double cycle_s;       /**< duration of two steps */
    double support;       /**< part of a cycle in which a foot is on the ground */
    double up_m;          /**< amplitude of the body up and down, twice in a cycle */
    double forward_m;     /**< amplitude of the body to and fro, twice in a cycle ... */
    double forward_turns; /**< ... and its phase */
    double shoulder_rad;  /**< amplitude of the flexion of a shoulder, once in a cycle */
    double elbow_rad;     /**< amplitude of the flexion of an elbow */
};

/**
 * Returns how a person walks (R. Boulic, N. Magnenat-Thalmann, D. Thalmann, "A global human walking model
 * with real-time kinematic personification", 1990). Lengths are relative to the height of the hip.
 */
gait gait_of(double speed_m_s, double height_m)
{
    const double hip_m = 0.53 * height_m;
    const double speed = speed_m_s / hip_m;
    const double slow = std::fmin(speed, 0.5);
    const double radians_per_degree = two_pi / 360.0;
    gait gait = {};
    gait.cycle_s = 1.346 / std::sqrt(speed);
    gait.support = 0.752 - 0.143 / gait.cycle_s;
    gait.up_m = 0.015 * speed * hip_m;
    gait.forward_m = 0.084 * slow * (1.0 - slow) * hip_m;
    gait.forward_turns = 2.0 * (0.625 - gait.support);
    gait.shoulder_rad = 9.88 * speed * radians_per_degree;
    gait.elbow_rad = 14.0 * slow * radians_per_degree;
    return gait;
}

/** A straight walk from one place to another. */
struct leg
{
    double start_s;
    double end_s;
    double from_m[2];
    double direction[2]; /**< of length 1 */
    double speed_m_s;
    double height_m;
    gait walk;
};

/** Returns a phase from -0.5 to 0.5 turns. */
double turns_of(double turns)
{
    return std::remainder(turns, 1.0);
}

/** Sets the amplitude of an oscillation along the path. */
void turn_along(zet_simulator_oscillation_t &oscillation, const leg &leg)
{
    for (size_t axis = 0; axis < std::size(leg.direction); ++axis)
    {
        oscillation.amplitude_xyz_m[axis] = oscillation.amplitude_m * static_cast<float>(leg.direction[axis]);
    }
    oscillation.amplitude_m = 0.0F;
}

/** Adds the motion of a foot, or a part of it, relative to the body. */
void add_foot(builder &scene, zet_simulator_target_t &target, const leg &leg, double part, double phase_turns)
{
    const waveform foot = foot_waveform(leg.walk.support);
    const double stride_m = leg.speed_m_s * leg.walk.cycle_s;
    for (size_t i = 0; i < harmonic_count; ++i)
    {
        const auto multiple = static_cast<double>(i + 1U);
        turn_along(
            scene.move(target, {part * stride_m * foot.harmonics[i].amplitude, multiple / leg.walk.cycle_s,
                                turns_of(multiple * phase_turns + foot.harmonics[i].phase_turns)}),
            leg);
    }
}

/** Adds the motion of a point of a walker relative to the middle of the body. */
void add_swing(builder &scene, zet_simulator_target_t &target, const walker_point &point, const leg &leg)
{
    const gait &walk = leg.walk;
    const double start_turns = -leg.start_s / walk.cycle_s;
    if (point.body > 0.0)
    {
        zet_simulator_oscillation_t &up = scene.move(
            target, {point.body * walk.up_m, 2.0 / walk.cycle_s, turns_of(2.0 * start_turns - 0.35)});
        up.amplitude_xyz_m[2] = up.amplitude_m;
        up.amplitude_m = 0.0F;
        turn_along(scene.move(target, {-point.body * walk.forward_m, 2.0 / walk.cycle_s,
                                       turns_of(2.0 * start_turns + walk.forward_turns)}),
                   leg);
    }
    if (point.foot > 0.0)
    {
        add_foot(scene, target, leg, point.foot, start_turns + point.phase_turns);
    }
    if (point.shoulder > 0.0)
    {
        // The arm is back when the heel of its side touches the ground: minus cosine.
        const double swing_m =
            leg.height_m * (point.shoulder * walk.shoulder_rad + point.elbow * walk.elbow_rad);
        turn_along(scene.move(target, {swing_m, 1.0 / walk.cycle_s,
                                       turns_of(start_turns + point.phase_turns - 0.25)}),
                   leg);
    }
}

/** Adds all points of a walker for one leg of the path. */
void add_leg(builder &scene, const body &body, const leg &leg)
{
    for (const walker_point &point : walker_points)
    {
        zet_simulator_target_t &target =
            scene.add(body, 0.0, static_cast<double>(body.strength_m2) * point.part);
        target.has_place = true;
        target.enter_s = static_cast<float>(leg.start_s);
        target.leave_s = static_cast<float>(leg.end_s);
        for (size_t axis = 0; axis < std::size(leg.direction); ++axis)
        {
            const double velocity = leg.speed_m_s * leg.direction[axis];
            target.place_m[axis] = static_cast<float>(leg.from_m[axis] - velocity * leg.start_s);
            target.place_velocity_m_s[axis] = static_cast<float>(velocity);
        }
        target.place_m[2] = body.place_m[2] + static_cast<float>(point.height * leg.height_m);
        add_swing(scene, target, point, leg);
    }
}

/** Adds a walking person. */
void add_walker(builder &scene, const body &body)
{
    const double speed = static_cast<double>(body.speed_m_s);
    const double height = static_cast<double>(body.height_m);
    const double ends[2][2] = {{static_cast<double>(body.place_m[0]), static_cast<double>(body.place_m[1])},
                               {static_cast<double>(body.to_m[0]), static_cast<double>(body.to_m[1])}};
    const double length = std::hypot(ends[1][0] - ends[0][0], ends[1][1] - ends[0][1]);
    const auto start_s = static_cast<double>(body.enter_s);
    for (uint32_t i = 0; i < body.legs; ++i)
    {
        const double(&from)[2] = ends[i % 2U];
        const double(&to)[2] = ends[1U - i % 2U];
        add_leg(scene, body,
                {start_s + i * length / speed,
                 start_s + (i + 1U) * length / speed,
                 {from[0], from[1]},
                 {(to[0] - from[0]) / length, (to[1] - from[1]) / length},
                 speed,
                 height,
                 gait_of(speed, height)});
    }
}

/** Adds a liquid with ripples of three frequencies and, if it has a cross-section, a stirrer in front of it.
 */
void add_surface(builder &scene, const body &body)
{
    const auto distance = static_cast<double>(body.distance_m);
    zet_simulator_target_t &surface = scene.add(body, distance, 0.0);
    surface.reflectivity = body.reflectivity;
    const double rate_hz = static_cast<double>(body.rate_per_min) / 60.0;
    for (int i = 0; i < 3; ++i)
    {
        scene.move(surface, {static_cast<double>(body.amplitude_m) / (1.0 + i), rate_hz * (1.0 + golden * i),
                             std::fmod(golden * i, 1.0)});
    }
    if (body.stirrer_m2 != 0.0F)
    {
        const double radius = static_cast<double>(body.stirrer_radius_m);
        zet_simulator_target_t &stirrer =
            scene.add(body, distance - 1.5 * radius, static_cast<double>(body.stirrer_m2));
        scene.move(stirrer, {radius, static_cast<double>(body.stirrer_rate_per_min) / 60.0, 0.0});
    }
}

/** Adds a fan that the sensor sees from the edge: the tip of each blade approaches and moves away. */
void add_fan(builder &scene, const body &body)
{
    const uint32_t blades = body.points;
    for (uint32_t i = 0; i < blades; ++i)
    {
        zet_simulator_target_t &tip = scene.add(body, static_cast<double>(body.distance_m),
                                                static_cast<double>(body.strength_m2) / blades);
        scene.move(tip, {static_cast<double>(body.radius_m), static_cast<double>(body.rate_per_min) / 60.0,
                         static_cast<double>(i) / blades});
    }
}

/** Adds a curtain: points that sway with different frequencies and never all in the same way again. */
void add_curtain(builder &scene, const body &body)
{
    const uint32_t points = body.points;
    const double rate_hz = static_cast<double>(body.rate_per_min) / 60.0;
    for (uint32_t i = 0; i < points; ++i)
    {
        const double part = std::fmod(golden * i, 1.0);
        const double amplitude = static_cast<double>(body.amplitude_m);
        zet_simulator_target_t &fold =
            scene.add(body, static_cast<double>(body.distance_m) + 2.0 * amplitude * (part - 0.5),
                      static_cast<double>(body.strength_m2) / points);
        scene.move(fold, {amplitude, rate_hz * (0.75 + 0.5 * part), part});
    }
}

/** Adds things that stand still at random distances, with exponentially distributed cross-sections. */
void add_clutter(builder &scene, const body &body)
{
    const uint32_t points = body.points;
    const auto nearest = static_cast<double>(body.nearest_m);
    const double span = static_cast<double>(body.farthest_m) - nearest;
    const auto unit = [&](uint64_t number) {
        return (static_cast<double>(key_of_part(scramble(body.seed), number) >> 12U) + 0.5) / 0x1.0p52;
    };
    for (uint64_t i = 0; i < points; ++i)
    {
        const double strength = -std::log(unit(2 * i + 1U)) * static_cast<double>(body.strength_m2);
        scene.add(body, nearest + span * unit(2 * i), std::fmax(strength, 0.001));
    }
}

/** Checks that a walker has a way to go. */
bool has_way(const body &body, const scene_place &place, scene_report &report)
{
    const float length_m = std::hypot(body.to_m[0] - body.place_m[0], body.to_m[1] - body.place_m[1]);
    return length_m >= 0.1F ||
           refuse_at(report, place, nullptr,
                     " walks %s m, but to_x_m and to_y_m must be at least 0.1 m away from x_m and y_m",
                     text_beside(static_cast<double>(length_m), {0.1}).text);
}

/** Checks the fields of a body against each other. */
bool is_consistent(const body &body, const scene_place &place, scene_report &report)
{
    if (body.kind == body_kind::clutter && body.farthest_m <= body.nearest_m)
    {
        return refuse_beside(report, place, "farthest_m", body.farthest_m, "more than nearest_m",
                             body.nearest_m);
    }
    if (body.kind == body_kind::walker && !has_way(body, place, report))
    {
        return false;
    }
    if (body.stirrer_m2 != 0.0F &&
        static_cast<double>(body.distance_m) < 2.6 * static_cast<double>(body.stirrer_radius_m))
    {
        return refuse_beside(report, place, "stirrer_radius_m", body.stirrer_radius_m,
                             "at most distance_m / 2.6", body.distance_m / 2.6F);
    }
    if (body.leave_s != 0.0F && body.leave_s <= body.enter_s)
    {
        return refuse_beside(report, place, "leave_s", body.leave_s, "more than enter_s", body.enter_s);
    }
    return true;
}

constexpr void (*adders[body_kind_count])(builder &, const body &) = {
    add_breathing, add_walker, add_surface, add_fan, add_curtain, add_clutter};

} // namespace

namespace zet_simulator
{

body body_with_defaults(body_kind kind)
{
    body defaults = {};
    defaults.kind = kind;
    defaults.height_m = 1.75F;
    defaults.legs = 2;
    defaults.speed_m_s = 1.2F;
    defaults.reflectivity = 0.5F;
    defaults.stirrer_radius_m = 0.1F;
    defaults.stirrer_rate_per_min = 60.0F;
    switch (kind)
    {
    case body_kind::breathing:
        defaults.strength_m2 = 0.5F;
        defaults.rate_per_min = 15.0F;
        defaults.amplitude_m = 0.008F;
        defaults.variability = 0.05F;
        defaults.heart_rate_per_min = 66.0F;
        defaults.heart_amplitude_m = 0.0005F;
        break;
    case body_kind::walker:
        defaults.strength_m2 = 0.6F;
        break;
    case body_kind::surface:
        defaults.rate_per_min = 90.0F;
        defaults.amplitude_m = 0.0003F;
        break;
    case body_kind::fan:
        defaults.strength_m2 = 0.03F;
        defaults.rate_per_min = 120.0F;
        defaults.radius_m = 0.2F;
        defaults.points = 3;
        break;
    case body_kind::curtain:
        defaults.strength_m2 = 0.3F;
        defaults.rate_per_min = 15.0F;
        defaults.amplitude_m = 0.01F;
        defaults.points = 6;
        break;
    case body_kind::clutter:
        defaults.strength_m2 = 0.05F;
        defaults.points = 8;
        break;
    }
    return defaults;
}

bool body_expand(const body &body, const scene_place &place, zet_simulator_scene_t &scene,
                 scene_report &report)
{
    if (!is_consistent(body, place, report))
    {
        return false;
    }
    builder added(scene);
    adders[static_cast<size_t>(body.kind)](added, body);
    return added.had_room() ||
           refuse_at(
               report, place, nullptr,
               " makes the scene have %lu targets and %lu oscillations, but there must be at most %u and %u",
               static_cast<unsigned long>(added.target_count()),
               static_cast<unsigned long>(added.oscillation_count()),
               static_cast<unsigned>(ZET_SIMULATOR_MAX_TARGETS),
               static_cast<unsigned>(ZET_SIMULATOR_MAX_OSCILLATIONS));
}

} // namespace zet_simulator
