/** @file
 * The scene used when the port provides none, and the hardware used when a scene file describes none.
 */
#include "zet_simulator_scene.h"

namespace
{

constexpr zet_simulator_hardware_t default_hardware = {
    .sensor_id = 0,
    .phase_noise_rad_per_m = 0.01F,
    .phase_drift_rad_per_m = 0.001F,
    .sidelobe_level = 0.02F,
    .ringing_level = 0.03F,
    .delay_drift_mm_per_k = 0.2F,
    .gain_drift_per_k = 0.002F,
    .bursts_per_s = 0.0F,
    .burst_s = 0.002F,
    .burst_strength = 20.0F,
};

/** Returns a target that does not move. */
constexpr zet_simulator_target_t still_target(float distance_m, float strength_m2)
{
    zet_simulator_target_t target = {};
    target.distance_m = distance_m;
    target.strength_m2 = strength_m2;
    return target;
}

/** Returns the scene: a small reflector, a breathing person, a wall. */
constexpr zet_simulator_scene_t built_in_scene()
{
    zet_simulator_scene_t scene = {};
    scene.target_count = 3;
    scene.targets[0] = still_target(0.5F, 0.05F);
    scene.targets[1] = still_target(1.2F, 0.5F);
    scene.targets[1].oscillation_amplitude_m = 0.004F;
    scene.targets[1].oscillation_frequency_hz = 0.25F;
    scene.targets[2] = still_target(3.5F, 10.0F);
    scene.hardware_count = 1;
    scene.hardware[0] = default_hardware;
    return scene;
}

constexpr zet_simulator_scene_t default_scene = built_in_scene();

} // namespace

zet_simulator_hardware_t zet_simulator_default_hardware(void)
{
    return default_hardware;
}

const zet_simulator_scene_t *zet_simulator_default_scene(void)
{
    return &default_scene;
}
