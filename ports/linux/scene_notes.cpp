/** @file
 * Finds what has no effect in a valid scene, or may not be what was meant.
 */
#include "scene_notes.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>

namespace
{

/** Collects the notes on a scene. */
class note_list_t
{
public:
    explicit note_list_t(const zet_simulator_scene_t &scene) : scene_(scene)
    {
    }

    std::vector<std::string> run()
    {
        for (size_t i = 0; i < scene_.target_count; ++i)
        {
            const std::string name = "targets[" + std::to_string(i) + "]";
            check_motion(scene_.targets[i], name);
            check_oscillations(scene_.targets[i], name);
        }
        check_sensors();
        return std::move(notes_);
    }

private:
    /** Notes that a part of the scene has something, but not what it needs to have an effect. */
    void note_without(const std::string &part, const char *given, const char *missing)
    {
        notes_.push_back(part + " has " + given + ", but no " + missing + ": it has no effect.");
    }

    void check_motion(const zet_simulator_target_t &target, const std::string &name)
    {
        if ((target.nearest_m != 0.0F || target.farthest_m != 0.0F) && target.velocity_m_s == 0.0F)
        {
            note_without(name, "nearest_m and farthest_m", "velocity_m_s");
        }
        if (target.keyframe_count > 0 && target.distance_m != 0.0F)
        {
            notes_.push_back(name + " has distance_m and a track: its distance is the sum of both.");
        }
    }

    void check_oscillations(const zet_simulator_target_t &target, const std::string &name)
    {
        if (target.oscillation_amplitude_m != 0.0F && target.oscillation_frequency_hz == 0.0F)
        {
            note_without(name, "oscillation_amplitude_m", "oscillation_frequency_hz");
        }
        if (target.oscillation_frequency_hz != 0.0F && target.oscillation_amplitude_m == 0.0F)
        {
            note_without(name, "oscillation_frequency_hz", "oscillation_amplitude_m");
        }
        const auto all = std::span(scene_.oscillations);
        const auto own = all.subspan(target.first_oscillation, target.oscillation_count);
        for (size_t i = 0; i < own.size(); ++i)
        {
            check_oscillation(own[i], name + ".oscillations[" + std::to_string(i) + "]");
        }
    }

    void check_oscillation(const zet_simulator_oscillation_t &oscillation, const std::string &name)
    {
        if (oscillation.wander_turns != 0.0F && oscillation.wander_frequency_hz == 0.0F)
        {
            note_without(name, "wander_turns", "wander_frequency_hz");
        }
        if (oscillation.wander_frequency_hz != 0.0F && oscillation.wander_turns == 0.0F)
        {
            note_without(name, "wander_frequency_hz", "wander_turns");
        }
    }

    void check_sensors()
    {
        const auto poses = std::span(scene_.poses).first(scene_.pose_count);
        const auto targets = std::span(scene_.targets).first(scene_.target_count);
        if (!poses.empty() &&
            std::ranges::none_of(targets, [](const auto &target) { return target.has_place; }))
        {
            notes_.emplace_back("sensors is only for targets with a place (x_m, y_m, z_m), and there is "
                                "none: it has no effect.");
        }
        for (size_t i = 0; i < poses.size(); ++i)
        {
            const auto is_same = [&](const zet_simulator_pose_t &earlier) {
                return earlier.sensor_id == poses[i].sensor_id && earlier.board == poses[i].board;
            };
            if (std::ranges::any_of(poses.first(i), is_same))
            {
                notes_.push_back("sensors[" + std::to_string(i) +
                                 "] is for the same sensor as an earlier entry: it has no effect.");
            }
        }
    }

    const zet_simulator_scene_t &scene_;
    std::vector<std::string> notes_;
};

} // namespace

std::vector<std::string> scene_notes(const zet_simulator_scene_t &scene)
{
    return note_list_t(scene).run();
}
