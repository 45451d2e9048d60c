/** @file
 * Speed of the simulator on one core, on the virtual clock, with three targets.
 *
 * The simulator should calculate at least 40 million complex samples per second with ideal sensors, so that
 * benchmarks of the server measure mainly the server, and 20 million with everything that a scene can have.
 */
#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>

#include "board_memory.h"
#include "zet_config.h"
#include "zet_config_subsweep.h"
#include "zet_hal_integration_k330.h"
#include "zet_integration.h"
#include "zet_nox_k330.h"
#include "zet_processing.h"
#include "zet_sensor.h"
#include "zet_simulator.h"

namespace
{

constexpr zet_sensor_id_t sensor_id = 1;
constexpr uint32_t interrupt_timeout_ms = 10000;

/** Three targets in the measured range. */
zet_simulator_scene_t three_targets()
{
    zet_simulator_scene_t scene = {};
    scene.target_count = 3;
    scene.targets[0].distance_m = 0.5F;
    scene.targets[0].strength_m2 = 0.05F;
    scene.targets[1].distance_m = 1.2F;
    scene.targets[1].strength_m2 = 0.5F;
    scene.targets[1].oscillation_amplitude_m = 0.004F;
    scene.targets[1].oscillation_frequency_hz = 0.25F;
    scene.targets[2].distance_m = 2.0F;
    scene.targets[2].strength_m2 = 1.0F;
    scene.targets[2].velocity_m_s = 0.01F;
    return scene;
}

/** The same targets in space, which fluctuate and oscillate, seen by a real sensor with a beam in a band with
 * interference. */
zet_simulator_scene_t everything()
{
    zet_simulator_scene_t all = three_targets();
    for (uint16_t i = 0; i < all.target_count; ++i)
    {
        zet_simulator_target_t &target = all.targets[i];
        target.has_place = true;
        target.place_m[1] = target.distance_m;
        target.distance_m = 0.0F;
        target.velocity_m_s = 0.0F;
        target.fluctuation = ZET_SIMULATOR_FLUCTUATION_SWERLING_1;
        target.first_oscillation = static_cast<uint16_t>(2U * i);
        target.oscillation_count = 2;
        target.first_keyframe = static_cast<uint16_t>(4U * i);
        target.keyframe_count = 4;
        for (uint16_t j = 0; j < 2U; ++j)
        {
            all.oscillations[all.oscillation_count++] = {0.004F, 0.25F, 0.0F,
                                                         0.1F,   0.05F, {0.0F, 0.01F, 0.0F}};
        }
        for (uint16_t j = 0; j < 4U; ++j)
        {
            all.keyframes[all.keyframe_count++] = {static_cast<float>(10U * j),
                                                   {0.0F, 0.1F * static_cast<float>(j), 0.0F}};
        }
    }
    all.pose_count = 1;
    all.poses[0].beam_deg = 60.0F;
    all.interferer_count = 1;
    all.interferers[0] = {0, 1.0F, 0.0F, 0.5F, 1.0F};
    all.hardware_count = 1;
    all.hardware[0] = zet_simulator_default_hardware();
    all.hardware[0].bursts_per_s = 10.0F;
    return all;
}

const std::array<zet_simulator_scene_t, 2> scenes = {three_targets(), everything()};

/** A sensor that is prepared for frames with 16 sweeps, with its configuration and buffer. */
struct prepared_sensor_t
{
    zet_config_t *config = nullptr;
    zet_sensor_t *sensor = nullptr;
    void *buffer = nullptr;
    uint32_t buffer_size = 0;
};

/** Starts the simulator and prepares a sensor. */
bool set_up(prepared_sensor_t &prepared, const zet_simulator_scene_t &scene, uint16_t num_points)
{
    static std::array<std::byte, size_t{1024} * 1024> memory;
    memory_lend(memory.data(), memory.size());
    zet_simulator_options_t options = {};
    options.sensor_count = 1;
    options.clock = zet_simulator_virtual_clock();
    options.scene = &scene;
    if (!zet_simulator_start(&options) || !zet_nox_hal_register(zet_hal_nox_integration_get_implementation()))
    {
        return false;
    }
    zet_hal_integration_sensor_supply_on(sensor_id);
    zet_hal_integration_sensor_enable(sensor_id);
    prepared.config = zet_config_create();
    zet_config_sweeps_per_frame_set(prepared.config, 16);
    zet_config_subsweep_num_points_set(prepared.config, num_points, 0);
    zet_config_subsweep_step_length_set(prepared.config, static_cast<uint16_t>(1000 / num_points), 0);
    zet_nox_get_buffer_size(prepared.config, &prepared.buffer_size);
    prepared.buffer = zet_integration_mem_alloc(prepared.buffer_size);
    prepared.sensor = zet_sensor_create(sensor_id);

    zet_cal_result_t calibration = {};
    bool complete = false;
    while (!complete && zet_sensor_calibrate(prepared.sensor, &complete, &calibration, prepared.buffer,
                                             prepared.buffer_size))
    {
        zet_hal_integration_wait_for_sensor_interrupt(sensor_id, interrupt_timeout_ms);
    }
    zet_hal_integration_sensor_disable(sensor_id);
    zet_hal_integration_sensor_enable(sensor_id);
    return zet_sensor_prepare(prepared.sensor, prepared.config, &calibration, prepared.buffer,
                              prepared.buffer_size);
}

/** Frees all resources and stops the simulator. */
void tear_down(const prepared_sensor_t &prepared)
{
    zet_sensor_destroy(prepared.sensor);
    zet_config_destroy(prepared.config);
    zet_integration_mem_free(prepared.buffer);
    zet_simulator_stop();
}

/** Measures frames from 0.2 to 2.7 metres. */
void measure_frames(benchmark::State &state)
{
    const auto num_points = static_cast<uint16_t>(state.range(0));
    prepared_sensor_t prepared;
    if (!set_up(prepared, scenes.at(static_cast<size_t>(state.range(1))), num_points))
    {
        state.SkipWithError("the sensor could not be prepared");
        tear_down(prepared);
        return;
    }
    for (auto _ : state)
    {
        if (!zet_sensor_measure(prepared.sensor) ||
            !zet_hal_integration_wait_for_sensor_interrupt(sensor_id, interrupt_timeout_ms) ||
            !zet_sensor_read(prepared.sensor, prepared.buffer, prepared.buffer_size))
        {
            state.SkipWithError("the sensor did not measure");
            break;
        }
        benchmark::DoNotOptimize(prepared.buffer);
    }
    state.SetItemsProcessed(state.iterations() * num_points * 16);
    tear_down(prepared);
}

} // namespace

BENCHMARK(measure_frames)
    ->Name("complex_samples")
    ->ArgNames({"points", "everything"})
    ->ArgsProduct({{40, 160, 1000}, {0, 1}});

BENCHMARK_MAIN();
