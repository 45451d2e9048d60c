/** @file
 * One world: all sensors of a session see the same scene at the same time, on any clock.
 */
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>
#include <optional>

#include "simulated_sensor.h"
#include "zet_config_subsweep.h"
#include "zet_hal_integration_k330.h"

namespace
{

/** Turns of the phase while a target moves by one metre. */
constexpr double turns_per_metre = 400.0;

/** A strong target at 1 metre with a velocity. */
zet_simulator_scene_t moving_scene(float velocity_m_s)
{
    zet_simulator_scene_t scene = scene_with_target(1.0F, 0.5F);
    scene.targets[0].velocity_m_s = velocity_m_s;
    scene.targets[0].nearest_m = 0.9F;
    scene.targets[0].farthest_m = 1.1F;
    return scene;
}

/** Configures one point at 1 metre with little noise. */
void configure_point(const simulated_sensor &sensor)
{
    zet_config_subsweep_start_point_set(sensor.config, 400, 0);
    zet_config_subsweep_num_points_set(sensor.config, 1, 0);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
}

/** A sensor that is ready to measure one point at 1 metre. */
struct point_sensor : simulated_sensor
{
    explicit point_sensor(zet_sensor_id_t sensor_id, float frame_rate = 0.0F) : simulated_sensor(sensor_id)
    {
        configure_point(*this);
        zet_config_frame_rate_set(config, frame_rate);
        EXPECT_TRUE(prepare()) << simulation::log();
    }

    std::complex<float> point()
    {
        return measure().samples[0];
    }
};

TEST(world, sensors_that_measure_half_a_millisecond_apart_see_the_scene_half_a_millisecond_apart)
{
    const zet_simulator_scene_t scene = moving_scene(0.5F);
    for (const float frame_rate : {0.0F, 20.0F})
    {
        const simulation simulation(2, &scene);
        point_sensor first(1, frame_rate);
        point_sensor second(2, frame_rate);
        ASSERT_TRUE(zet_sensor_measure(first.sensor));
        advance_us(500);
        ASSERT_TRUE(zet_sensor_measure(second.sensor));
        const auto read = [](simulated_sensor &sensor, zet_sensor_id_t id) {
            EXPECT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(id, 1000));
            EXPECT_TRUE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
            zet_processing_result_t result = {};
            zet_processing_execute(sensor.processing, sensor.buffer.data(), &result);
            return std::complex<float>(result.frame[0].real, result.frame[0].imag);
        };
        const std::complex<float> before = read(first, 1);
        const std::complex<float> after = read(second, 2);
        EXPECT_NEAR(turns_between(before, after), 0.5e-3 * 0.5 * turns_per_metre, 0.01) << frame_rate;
    }
}

TEST(world, scene_starts_with_the_first_frame_of_any_sensor)
{
    // The temperature is that of the scene: it rises by 10 degrees a second.
    zet_simulator_scene_t scene = empty_scene();
    scene.temperature_count = 1;
    scene.temperatures[0] = {0, 20.0F, 10.0F};
    const simulation simulation(2, &scene);
    {
        point_sensor first(1);
        auto second = std::make_unique<point_sensor>(2);
        advance_us(3000000);
        EXPECT_EQ(first.measure().result.temperature, 20);
        advance_us(1000000);
        EXPECT_EQ(second->measure().result.temperature, 30);
        advance_us(1000000);
        second = nullptr;
        second = std::make_unique<point_sensor>(2);
        EXPECT_EQ(second->measure().result.temperature, 40) << "a sensor that joins the session";
    }
    point_sensor next(2);
    EXPECT_EQ(next.measure().result.temperature, 20) << "the next session";
}

/** State of a clock on which computing takes time, by a different duration in every call. */
struct slow_computer
{
    uint64_t calls = 0;
    uint64_t longest_sleep_us = 0;
};

slow_computer computer;

uint64_t slow_now_us()
{
    advance_us(1 + computer.calls++ * 37 % 100);
    return now_us();
}

void slow_sleep_until_us(uint64_t time_us)
{
    const uint64_t lateness_us = ++computer.calls * 7919 % (computer.longest_sleep_us + 1);
    zet_simulator_virtual_clock().sleep_until_us(time_us + lateness_us);
}

constexpr zet_simulator_clock_t slow_clock = {slow_now_us, slow_sleep_until_us};

constexpr float frame_rate = 20.0F;
constexpr size_t frame_count = 100;

/** A frame of one of two sensors. */
struct paced_frame
{
    std::vector<std::complex<float>> samples;
    bool delayed;
    uint64_t requested_us; /**< on the virtual clock */
};

/** The frames of two sensors, one after the other. */
using pair_frames = std::vector<paced_frame>;

/** Two sensors that measure at a frame rate. */
class pair_of_sensors
{
public:
    explicit pair_of_sensors(zet_simulator_clock_t clock)
        : scene_(moving_scene(2.0F)),
          simulation_(2, &scene_, 3, clock), sensors_{one_sensor(1), one_sensor(2)}
    {
    }

    /** Measures with all sensors of a group at the same time, and with the groups one after the other. */
    pair_frames measure(const std::vector<std::vector<size_t>> &groups)
    {
        pair_frames frames;
        for (size_t i = 0; i < frame_count; ++i)
        {
            for (const auto &group : groups)
            {
                measure_group(group, frames);
            }
        }
        return frames;
    }

private:
    static std::unique_ptr<simulated_sensor> one_sensor(zet_sensor_id_t sensor_id)
    {
        auto sensor = std::make_unique<simulated_sensor>(sensor_id);
        zet_config_sweeps_per_frame_set(sensor->config, static_cast<uint16_t>(2 * sensor_id));
        zet_config_frame_rate_set(sensor->config, frame_rate);
        zet_config_subsweep_start_point_set(sensor->config, 380, 0);
        zet_config_subsweep_num_points_set(sensor->config, 40, 0);
        EXPECT_TRUE(sensor->prepare());
        return sensor;
    }

    void measure_group(const std::vector<size_t> &group, pair_frames &frames)
    {
        const size_t first = frames.size();
        for (const size_t each : group)
        {
            EXPECT_TRUE(zet_sensor_measure(sensors_[each]->sensor)) << simulation::log();
            frames.push_back({{}, false, now_us()});
        }
        for (const size_t each : group)
        {
            EXPECT_TRUE(
                zet_hal_integration_wait_for_sensor_interrupt(static_cast<zet_sensor_id_t>(each + 1), 1000));
        }
        for (size_t i = 0; i < group.size(); ++i)
        {
            read(*sensors_[group[i]], frames[first + i]);
        }
    }

    static void read(simulated_sensor &sensor, paced_frame &frame)
    {
        EXPECT_TRUE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
        zet_processing_result_t result = {};
        zet_processing_execute(sensor.processing, sensor.buffer.data(), &result);
        frame.delayed = result.frame_delayed;
        for (uint32_t i = 0; i < sensor.metadata.frame_data_length; ++i)
        {
            frame.samples.emplace_back(result.frame[i].real, result.frame[i].imag);
        }
    }

    zet_simulator_scene_t scene_;
    simulation simulation_;
    std::array<std::unique_ptr<simulated_sensor>, 2> sensors_;
};

const std::vector<std::vector<size_t>> one_group = {{0, 1}};
const std::vector<std::vector<size_t>> two_groups = {{0}, {1}};

/** Expects the same samples of all frames that are on time on the slow clock; returns their number. */
size_t compare_clocks(const std::vector<std::vector<size_t>> &groups, uint64_t longest_sleep_us)
{
    computer = {0, longest_sleep_us};
    const pair_frames slow = pair_of_sensors(slow_clock).measure(groups);
    const pair_frames ideal = pair_of_sensors(zet_simulator_virtual_clock()).measure(groups);
    size_t on_time = 0;
    for (size_t i = 0; i < ideal.size(); ++i)
    {
        EXPECT_FALSE(ideal[i].delayed) << i;
        if (!slow[i].delayed)
        {
            EXPECT_EQ(slow[i].samples, ideal[i].samples) << "frame " << i;
            ++on_time;
        }
    }
    return on_time;
}

TEST(world, frames_on_time_do_not_depend_on_how_long_computing_takes)
{
    EXPECT_EQ(compare_clocks(one_group, 20000), 2 * frame_count);
    // In a second group, a frame is late if the first group woke later than in the first frame.
    const size_t on_time = compare_clocks(two_groups, 20000);
    EXPECT_GT(on_time, frame_count);
    EXPECT_LT(on_time, 2 * frame_count);
}

TEST(world, a_late_frame_shows_the_scene_at_its_real_moment)
{
    const zet_simulator_scene_t scene = moving_scene(0.01F);
    computer = {};
    const simulation simulation(1, &scene, 1, slow_clock);
    point_sensor sensor(1, frame_rate);
    const uint64_t start_us = now_us();
    const std::complex<float> before = sensor.point();
    advance_us(1000000);
    const uint64_t late_us = now_us();
    frame measured = sensor.measure();
    EXPECT_TRUE(measured.result.frame_delayed);
    const double moved_m = 0.01e-6 * static_cast<double>(late_us - start_us);
    const double turns = std::remainder(moved_m * turns_per_metre, 1.0);
    EXPECT_NEAR(turns_between(before, measured.samples[0]), turns, 0.005);
}

TEST(world, a_pause_moves_the_scene_on_although_the_frame_rate_changes_after_it)
{
    zet_simulator_scene_t scene = empty_scene();
    scene.temperature_count = 1;
    scene.temperatures[0] = {0, 20.0F, 10.0F};
    computer = {};
    const simulation simulation(1, &scene, 1, slow_clock);
    point_sensor sensor(1, frame_rate);
    EXPECT_EQ(sensor.measure().result.temperature, 20);
    advance_us(2000000);
    zet_config_frame_rate_set(sensor.config, 2.0F * frame_rate);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_EQ(sensor.measure().result.temperature, 40);
}

TEST(world, frames_without_a_frame_rate_show_the_scene_at_their_real_moment)
{
    zet_simulator_scene_t scene = empty_scene();
    scene.temperature_count = 1;
    scene.temperatures[0] = {0, 20.0F, 10.0F};
    computer = {};
    const simulation simulation(1, &scene, 1, slow_clock);
    point_sensor sensor(1);
    EXPECT_EQ(sensor.measure().result.temperature, 20);
    advance_us(2000000);
    EXPECT_EQ(sensor.measure().result.temperature, 40);
}

} // namespace
