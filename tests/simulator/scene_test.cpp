/** @file
 * Scenes: interferers, faults, scene files, and the messages about invalid ones.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <utility>

#include "scene/bodies/bodies.h"
#include "scene/scene.h"
#include "scene/scene_fields.h"
#include "scene_text.h"
#include "simulated_sensor.h"
#include "zet_config_internal.h"
#include "zet_hal_integration_k330.h"
#include "zet_nox_k330.h"

namespace
{

using testing::HasSubstr;

/** A scene with one fault. */
zet_simulator_scene_t scene_with_fault(zet_simulator_fault_kind_t kind, uint32_t skip, uint32_t count)
{
    zet_simulator_scene_t scene = {};
    scene.fault_count = 1;
    scene.faults[0].kind = kind;
    scene.faults[0].skip = skip;
    scene.faults[0].count = count;
    return scene;
}

TEST(scene, an_interferer_is_detected_only_while_it_sends)
{
    zet_simulator_scene_t scene = empty_scene();
    scene.interferer_count = 1;
    scene.interferers[0].strength = 8.0F;
    scene.interferers[0].start_s = 1.0F;
    scene.interferers[0].duration_s = 0.5F;
    scene.interferers[0].period_s = 2.0F;
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 10.0F);
    sensor.enable_cca();
    ASSERT_TRUE(sensor.prepare());
    for (int tenth = 0; tenth < 60; ++tenth)
    {
        const float value = sensor.measure().cca_value;
        const bool sends = tenth >= 10 && (tenth - 10) % 20 < 5;
        if (sends)
        {
            EXPECT_NEAR(value, 8.0F, 3.0F) << tenth;
        }
        else
        {
            EXPECT_LT(value, 0.0F) << tenth;
        }
    }
}

TEST(scene, a_clear_channel_is_reported_with_the_transmitter_on_and_off)
{
    const zet_simulator_scene_t scene = scene_with_target(0.4F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    sensor.enable_cca();
    for (const bool transmits : {true, false})
    {
        zet_config_enable_tx_set(sensor.config, transmits);
        ASSERT_TRUE(sensor.prepare());
        for (int i = 0; i < 500; ++i)
        {
            ASSERT_LT(sensor.measure().cca_value, 0.0F);
        }
    }
}

TEST(scene, clear_channel_values_fluctuate_like_the_power_of_the_noise)
{
    constexpr double strength = 3.0;
    constexpr double value_count = 256.0;
    constexpr int frames = 2000;
    zet_simulator_scene_t scene = empty_scene();
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    sensor.enable_cca();
    ASSERT_TRUE(sensor.prepare());
    for (const double interference : {0.0, strength})
    {
        scene.interferer_count = interference > 0.0 ? 1 : 0;
        scene.interferers[0].strength = static_cast<float>(interference);
        double sum = 0.0;
        double squares = 0.0;
        for (int i = 0; i < frames; ++i)
        {
            const auto value = static_cast<double>(sensor.measure().cca_value);
            sum += value;
            squares += value * value;
        }
        const double mean = sum / frames;
        const double deviation = std::sqrt(squares / frames - mean * mean);
        const double expected = (1.0 + interference) / std::sqrt(value_count);
        EXPECT_NEAR(mean, interference - 0.35, 4.0 * expected / std::sqrt(frames)) << interference;
        EXPECT_NEAR(deviation, expected, 4.0 * expected / std::sqrt(2.0 * frames)) << interference;
    }
}

TEST(scene, an_interferer_can_affect_only_one_sensor)
{
    zet_simulator_scene_t scene = empty_scene();
    scene.interferer_count = 2;
    scene.interferers[0].strength = 5.0F;
    scene.interferers[0].sensor_id = 2;
    scene.interferers[1] = scene.interferers[0];
    const simulation simulation(2, &scene);
    simulated_sensor first(1);
    simulated_sensor second(2);
    first.enable_cca();
    second.enable_cca();
    ASSERT_TRUE(first.prepare());
    ASSERT_TRUE(second.prepare());
    EXPECT_LT(first.measure().cca_value, 0.0F);
    EXPECT_NEAR(second.measure().cca_value, 10.0F, 3.5F);
}

TEST(scene, an_absent_sensor_is_not_connected)
{
    zet_simulator_scene_t scene = scene_with_fault(ZET_SIMULATOR_FAULT_ABSENT_SENSOR, 0, 0);
    scene.faults[0].sensor_id = 2;
    const simulation simulation(2, &scene);
    for (const zet_sensor_id_t id : {1U, 2U})
    {
        zet_hal_integration_sensor_supply_on(id);
        zet_hal_integration_sensor_enable(id);
        EXPECT_EQ(zet_sensor_connected(id), id == 1U);
    }
    EXPECT_EQ(zet_sensor_create(2), nullptr);
    EXPECT_THAT(simulation::log(), HasSubstr("sensor 2 does not answer"));
}

TEST(scene, a_calibration_can_fail_once)
{
    const zet_simulator_scene_t scene = scene_with_fault(ZET_SIMULATOR_FAULT_FAILING_CALIBRATION, 2, 1);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    EXPECT_EQ(sensor.calibrate(), 0);
    EXPECT_THAT(simulation::log(), HasSubstr("does not settle in step 3"));
    EXPECT_EQ(sensor.calibrate(), 5);
}

TEST(scene, a_prepare_can_fail_once)
{
    const zet_simulator_scene_t scene = scene_with_fault(ZET_SIMULATOR_FAULT_FAILING_PREPARE, 1, 1);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    EXPECT_TRUE(sensor.prepare());
    EXPECT_FALSE(sensor.prepare());
    EXPECT_FALSE(zet_sensor_measure(sensor.sensor));
    EXPECT_TRUE(sensor.prepare());
}

TEST(scene, a_measurement_can_fail_to_start)
{
    const zet_simulator_scene_t scene = scene_with_fault(ZET_SIMULATOR_FAULT_FAILING_MEASURE, 0, 1);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    EXPECT_FALSE(zet_sensor_measure(sensor.sensor));
    EXPECT_TRUE(zet_sensor_measure(sensor.sensor));
}

TEST(scene, an_interrupt_can_be_lost)
{
    // Each of the four calibration steps raises an interrupt.
    const zet_simulator_scene_t scene = scene_with_fault(ZET_SIMULATOR_FAULT_LOST_INTERRUPT, 5, 1);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    ASSERT_TRUE(zet_sensor_measure(sensor.sensor));
    EXPECT_FALSE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
}

TEST(scene, a_failed_read_can_be_repeated)
{
    const zet_simulator_scene_t scene = scene_with_fault(ZET_SIMULATOR_FAULT_FAILING_READ, 1, 2);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    frame measured = {};
    EXPECT_FALSE(sensor.measure(measured));
    EXPECT_FALSE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
    EXPECT_TRUE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
}

TEST(scene, a_slow_link_delays_the_frames)
{
    zet_simulator_scene_t scene = scene_with_fault(ZET_SIMULATOR_FAULT_SLOW_LINK, 1, 0);
    scene.faults[0].bytes_per_second = 5000;
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 20.0F);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_FALSE(sensor.measure().result.frame_delayed);
    const uint64_t before_us = now_us();
    EXPECT_TRUE(sensor.measure().result.frame_delayed);
    const uint64_t transfer_us = sensor.buffer_size() * 1000000ULL / 5000U;
    EXPECT_GE(now_us() - before_us, transfer_us);
}

TEST(scene, passed_by_a_port_is_checked_at_the_start)
{
    zet_simulator_scene_t scene = scene_with_target(1.0F, 1.0F);
    scene.targets[0].velocity_m_s = std::numeric_limits<float>::quiet_NaN();
    zet_simulator_options_t options = {};
    options.sensor_count = 1;
    options.clock = zet_simulator_virtual_clock();
    options.scene = &scene;
    EXPECT_FALSE(zet_simulator_start(&options));
    options.log = [](zet_log_level_t, const char *, const char *text) {
        EXPECT_STREQ(text, "targets[0].velocity_m_s is NaN, but must be a number from -100 to 100");
    };
    EXPECT_FALSE(zet_simulator_start(&options));
    scene.targets[0].velocity_m_s = 0.0F;
    scene.targets[0].sensor_id = 2;
    options.log = [](zet_log_level_t, const char *, const char *text) {
        EXPECT_STREQ(text, "targets[0].sensor is 2, but the number of sensors on the board is 1");
    };
    EXPECT_FALSE(zet_simulator_start(&options));
    char error[256];
    scene.target_count = 65;
    EXPECT_FALSE(zet_simulator_scene_is_valid(&scene, error, sizeof(error)));
    EXPECT_STREQ(error, "targets[64] is one of 65 entries, but the most is 64");
}

TEST(scene, must_not_name_sensors_that_the_board_does_not_have)
{
    const auto error_of = [](const zet_simulator_scene_t &scene, uint16_t sensor_count) {
        char error[256] = "";
        const bool fits = zet_simulator_scene_fits_board(&scene, sensor_count, error, sizeof(error));
        EXPECT_EQ(fits, *error == '\0');
        return std::string(error);
    };
    zet_simulator_scene_t scene = scene_with_target(1.0F, 1.0F);
    EXPECT_EQ(error_of(scene, 1), "");
    scene.targets[0].sensor_id = 3;
    EXPECT_EQ(error_of(scene, 3), "");
    EXPECT_EQ(error_of(scene, 2), "targets[0].sensor is 3, but the number of sensors on the board is 2");
    scene = empty_scene();
    scene.interferer_count = scene.temperature_count = scene.fault_count = 2;
    scene.faults[1].sensor_id = 2;
    EXPECT_EQ(error_of(scene, 1), "faults[1].sensor is 2, but the number of sensors on the board is 1");
    scene.temperatures[1].sensor_id = 2;
    EXPECT_EQ(error_of(scene, 1), "temperatures[1].sensor is 2, but the number of sensors on the board is 1");
    scene.interferers[1].sensor_id = 2;
    EXPECT_EQ(error_of(scene, 1), "interferers[1].sensor is 2, but the number of sensors on the board is 1");
}

TEST(scene, the_temperature_of_one_sensor_holds_before_that_of_every_sensor)
{
    zet_simulator_scene_t scene = empty_scene();
    scene.temperature_count = 3;
    scene.temperatures[0] = {0, 10.0F, 0.0F};
    scene.temperatures[1] = {2, 20.0F, 0.0F};
    scene.temperatures[2] = {2, 30.0F, 0.0F};
    EXPECT_EQ(zet_simulator::scene_temperature(scene, 1, 0.0), 10);
    EXPECT_EQ(zet_simulator::scene_temperature(scene, 2, 0.0), 20);
    std::swap(scene.temperatures[0], scene.temperatures[1]);
    EXPECT_EQ(zet_simulator::scene_temperature(scene, 2, 0.0), 20);
}

TEST(scene_file, is_read_completely)
{
    const char *text = R"({
        "description": "everything",
        "targets": [{"distance_m": 1.5, "strength_m2": 2, "velocity_m_s": -0.5,
                     "oscillation_amplitude_m": 0.01,
                     "oscillation_frequency_hz": 0.3, "nearest_m": 0.5, "farthest_m": 3, "sensor": 2},
                    {"distance_m": 4, "strength_m2": 0.001}],
        "interferers": [{"strength": 9, "start_s": 1, "duration_s": 2, "period_s": 3}],
        "temperatures": [{"celsius": -10, "drift_celsius_per_s": 0.25, "sensor": 1}, {"celsius": 30}],
        "faults": [{"kind": "slow_link", "bytes_per_second": 1000, "skip": 3, "count": 4, "sensor": 1},
                   {"kind": "lost_interrupt"}]
    })";
    const zet_simulator_scene_t scene = scene_of(text);
    EXPECT_EQ(scene.target_count, 2U);
    EXPECT_EQ(scene.targets[0].sensor_id, 2U);
    EXPECT_EQ(scene.targets[0].distance_m, 1.5F);
    EXPECT_EQ(scene.targets[0].strength_m2, 2.0F);
    EXPECT_EQ(scene.targets[0].velocity_m_s, -0.5F);
    EXPECT_EQ(scene.targets[0].oscillation_amplitude_m, 0.01F);
    EXPECT_EQ(scene.targets[0].oscillation_frequency_hz, 0.3F);
    EXPECT_EQ(scene.targets[0].nearest_m, 0.5F);
    EXPECT_EQ(scene.targets[0].farthest_m, 3.0F);
    EXPECT_EQ(scene.targets[1].sensor_id, 0U);
    EXPECT_EQ(scene.targets[1].strength_m2, 0.001F);
    EXPECT_EQ(scene.interferer_count, 1U);
    EXPECT_EQ(scene.interferers[0].strength, 9.0F);
    EXPECT_EQ(scene.interferers[0].start_s, 1.0F);
    EXPECT_EQ(scene.interferers[0].duration_s, 2.0F);
    EXPECT_EQ(scene.interferers[0].period_s, 3.0F);
    EXPECT_EQ(scene.temperature_count, 2U);
    EXPECT_EQ(scene.temperatures[0].celsius, -10.0F);
    EXPECT_EQ(scene.temperatures[0].drift_celsius_per_s, 0.25F);
    EXPECT_EQ(scene.temperatures[0].sensor_id, 1U);
    EXPECT_EQ(scene.fault_count, 2U);
    EXPECT_EQ(scene.faults[0].kind, ZET_SIMULATOR_FAULT_SLOW_LINK);
    EXPECT_EQ(scene.faults[0].bytes_per_second, 1000U);
    EXPECT_EQ(scene.faults[0].skip, 3U);
    EXPECT_EQ(scene.faults[0].count, 4U);
    EXPECT_EQ(scene.faults[1].kind, ZET_SIMULATOR_FAULT_LOST_INTERRUPT);
}

/** An invalid scene file and the message about it. */
struct invalid_scene
{
    const char *name;
    std::string text;
    std::string error;
};

/** Prints a scene by its name in test lists and failures. */
void PrintTo(const invalid_scene &tested, std::ostream *out)
{
    *out << tested.name;
}

class invalid_scene_file : public testing::TestWithParam<invalid_scene>
{
};

TEST_P(invalid_scene_file, is_refused_with_a_message_about_the_key)
{
    const std::string &text = GetParam().text;
    EXPECT_EQ(refusal_of(text), GetParam().error);
    // A short buffer for the message is filled without an overflow.
    zet_simulator_scene_t scene;
    char little[8] = "";
    const zet_simulator_scene_source_t source = {text.c_str(), text.size(), 0, nullptr, nullptr, nullptr};
    EXPECT_FALSE(zet_simulator_scene_from_json(&source, &scene, little, sizeof(little)));
    EXPECT_EQ(std::string(little), GetParam().error.substr(0, 7));
}

std::string many_targets()
{
    std::string text = R"({"targets": [)";
    for (int i = 0; i < 65; ++i)
    {
        text += std::string(i == 0 ? "" : ",") + R"({"distance_m": 1, "strength_m2": 1})";
    }
    return text + "]}";
}

const invalid_scene invalid_scenes[] = {
    {"not_json", "{\"targets\": [}",
     "the scene is not JSON: it has \"}\" where it must have a value (line 1, column 14)"},
    {"empty", "",
     "the scene is not JSON: it has the end of the text where it must have a value (line 1, column 1)"},
    {"trailing_text", "{} {}",
     "the scene is not JSON: it has \"{\" where it must have the end of the text (line 1, column 4)"},
    {"fault_in_a_later_line", "{\n  \"description\": \"n\u00e4h\",\n  \"t\u00e4rgets\": [}\n}\n",
     "the scene is not JSON: it has \"}\" where it must have a value (line 3, column 15)"},
    {"array", "[]", "the scene is an array, but must be an object (line 1, column 1)"},
    {"unknown_key", R"({"target": []})",
     "the scene has the unknown key \"target\"; the keys are $schema, description, bodies, targets, "
     "interferers, "
     "temperatures, faults, hardware, sensors (line 1, column 2)"},
    {"repeated_key", R"({"faults": [], "faults": []})",
     "the scene has the key \"faults\" twice, but must have it once (line 1, column 16)"},
    {"not_an_array", R"({"targets": {}})",
     "targets is an object, but must be an array, [{ ... }] (line 1, column 13)"},
    {"not_an_object", R"({"targets": [3]})", "targets[0] is 3, but must be an object (line 1, column 14)"},
    {"missing_key", R"({"targets": [{"distance_m": 1}]})",
     "targets[0] has none of strength_m2 and reflectivity, but needs one (line 1, column 14)"},
    {"unknown_entry_key", R"({"temperatures": [{"celsius": 1}, {"celcius": 1}]})",
     "temperatures[1] has the unknown key \"celcius\"; the keys are sensor, celsius, drift_celsius_per_s "
     "(line 1, column 36)"},
    {"repeated_entry_key", R"({"temperatures": [{"celsius": 1, "celsius": 2}]})",
     "temperatures[0] has the key \"celsius\" twice, but must have it once (line 1, column 34)"},
    {"not_a_number", R"({"targets": [{"distance_m": "far", "strength_m2": 1}]})",
     "targets[0].distance_m is \"far\", but must be a number from 0.01 to 1000 (line 1, column 29)"},
    {"too_small", R"({"targets": [{"distance_m": 0, "strength_m2": 1}]})",
     "targets[0].distance_m is 0, but must be a number from 0.01 to 1000 (line 1, column 29)"},
    {"too_large", R"({"interferers": [{"strength": 1e400}]})",
     "interferers[0].strength is more than 1e9, but must be a number from 0.01 to 1000000 (line 1, column "
     "31)"},
    {"not_an_integer", R"({"faults": [{"kind": "failing_read", "skip": 1.5}]})",
     "faults[0].skip is 1.5, but must be a whole number from 0 to 100000000 (line 1, column 46)"},
    {"whole_number_just_above", R"({"faults": [{"kind": "failing_read", "count": 100000001}]})",
     "faults[0].count is 100000001, but must be a number from 0 to 100000000 (line 1, column 47)"},
    {"unknown_fault", R"({"faults": [{"kind": "broken"}]})",
     "faults[0].kind is \"broken\", but must be one of \"absent_sensor\", \"failing_calibration\", "
     "\"failing_prepare\", \"failing_measure\", \"lost_interrupt\", \"failing_read\", \"slow_link\" (line 1, "
     "column 22)"},
    {"fault_number", R"({"faults": [{"kind": 1}]})",
     "faults[0].kind is 1, but must be one of \"absent_sensor\", \"failing_calibration\", "
     "\"failing_prepare\", \"failing_measure\", \"lost_interrupt\", \"failing_read\", \"slow_link\" (line 1, "
     "column 22)"},
    {"reversed_limits",
     R"({"targets": [{"distance_m": 1, "strength_m2": 1, "nearest_m": 2, "farthest_m": 2}]})",
     "targets[0].farthest_m is 2, but must be more than nearest_m, which is 2 (line 1, column 80)"},
    {"start_beyond_the_limits",
     R"({"targets": [{"distance_m": 3.5, "strength_m2": 1, "nearest_m": 2, "farthest_m": 3}]})",
     "targets[0].distance_m is 3.5, but must be at most farthest_m, which is 3 (line 1, column 29)"},
    {"start_just_before_the_limits",
     R"({"targets": [{"distance_m": 1.9999999, "strength_m2": 1, "nearest_m": 2, "farthest_m": 3}]})",
     "targets[0].distance_m is 1.9999999e0, but must be at least nearest_m, which is 2 (line 1, column 29)"},
    {"only_the_nearest_limit", R"({"targets": [{"distance_m": 3, "strength_m2": 1, "nearest_m": 2}]})",
     "targets[0].nearest_m is given without farthest_m, but both or none of them must be given (line 1, "
     "column 63)"},
    {"only_the_farthest_limit", R"({"targets": [{"distance_m": 3, "strength_m2": 1, "farthest_m": 4}]})",
     "targets[0].farthest_m is given without nearest_m, but both or none of them must be given (line 1, "
     "column 64)"},
    {"negative_zero", R"({"targets": [{"distance_m": -0.0, "strength_m2": 1}]})",
     "targets[0].distance_m is 0, but must be a number from 0.01 to 1000 (line 1, column 29)"},
    {"limits_of_0", R"({"targets": [{"distance_m": 1, "strength_m2": 1, "nearest_m": 0, "farthest_m": 0}]})",
     "targets[0].farthest_m is 0, but must be more than nearest_m, which is 0 (line 1, column 80)"},
    {"direction_of_0", R"({"sensors": [{"direction_y": 0, "direction_z": -0.0}]})",
     "sensors[0] has a direction of 0, 0, 0, but one of direction_x, direction_y and direction_z must be "
     "other "
     "than 0 (line 1, column 14)"},
    {"null", R"({"targets": [{"distance_m": null}]})",
     "targets[0].distance_m is null, but must be a number from 0.01 to 1000 (line 1, column 29)"},
    {"truth_value", R"({"temperatures": [{"celsius": false}]})",
     "temperatures[0].celsius is false, but must be a number from -40 to 125 (line 1, column 31)"},
    {"list", R"({"interferers": [{"strength": [1]}]})",
     "interferers[0].strength is an array, but must be a number from 0.01 to 1000000 (line 1, column 31)"},
    {"description_twice", R"({"description": "a", "description": "b"})",
     "the scene has the key \"description\" twice, but must have it once (line 1, column 22)"},
    {"description_of_a_number", R"({"description": 1})",
     "description is 1, but must be a string (line 1, column 17)"},
    {"missing_key_of_a_fault", R"({"faults": [{"skip": 1}]})",
     "faults[0] has no key \"kind\", but must have it: one of \"absent_sensor\", \"failing_calibration\", "
     "\"failing_prepare\", \"failing_measure\", \"lost_interrupt\", \"failing_read\", \"slow_link\" (line 1, "
     "column "
     "13)"},
    {"long_and_strange_text",
     R"({"targets": [{"fluctuation": "\u0007)" + std::string(31, 'x') + "\xC3\xA4\"}]}",
     "targets[0].fluctuation is \"?" + std::string(31, 'x') +
         "...\", but must be one of \"none\", \"swerling_1\", \"swerling_3\" (line 1, column 30)"},
    {"escapes_in_keys", "{\"t\\u0061rgets\":\n\t[{\"sens\\u006fr\": 70000}]}",
     "targets[0].sensor is 70000, but must be a number from 0 to 65535 (line 2, column 19)"},
    {"byte_order_mark", "\xEF\xBB\xBF[]", "the scene is an array, but must be an object (line 1, column 1)"},
    {"null_byte", std::string("{\"a\0\"}", 7),
     "the scene is not JSON: it has the byte 0x00 where it must have an escape such as \\n or \\u0009 (line "
     "1, "
     "column 4)"},
    {"escaped_null_byte", R"({"description": "a\u0000"})",
     "the scene is not JSON: it has \"\\\" where it must have \\u and four hexadecimal digits that are not "
     "all 0 "
     "(line 1, column 19)"},
    {"half_a_surrogate", R"({"description": "\ud800"})",
     "the scene is not JSON: it has \"\\\" where it must have both halves of a pair of surrogates (line 1, "
     "column "
     "18)"},
    {"not_utf_8", "{\"description\": \"\xC3\xA4\xC3\"}",
     "the scene is not JSON: it has the byte 0xc3 where it must have a character in UTF-8 (line 1, column "
     "19)"},
    {"line_feed_in_a_string", "{\"description\": \"a\nb\"}",
     "the scene is not JSON: it has the end of a line where it must have an escape such as \\n or \\u0009 "
     "(line 1, "
     "column 19)"},
    {"number_with_zeros", R"({"targets": [{"distance_m": 007}]})",
     "the scene is not JSON: it has \"0\" where it must have \",\" or \"}\" (line 1, column 30)"},
    {"word_for_a_number", R"({"targets": [{"distance_m": NaN}]})",
     "the scene is not JSON: it has \"N\" where it must have a value (line 1, column 29)"},
    {"deep_nesting", std::string(17, '['),
     "the scene is not JSON: it has \"[\" where it must have at most 16 levels of nesting (line 1, column "
     "17)"},
    {"body_with_an_impossible_target",
     R"({"targets": [{"distance_m": 1, "strength_m2": 1}], "bodies": [
        {"kind": "curtain", "distance_m": 0.05, "amplitude_m": 0.5}]})",
     "bodies[0] gives a target that cannot be: targets[1].distance_m is -0.45, but must be a number from "
     "0.01 "
     "to 1000 (line 2, column 9)"},
    {"period_too_short", R"({"interferers": [{"strength": 1, "duration_s": 3, "period_s": 2}]})",
     "interferers[0].duration_s is 3, but must be more than 0 and at most period_s, which is 2 (line 1, "
     "column 48)"},
    {"period_without_duration", R"({"interferers": [{"strength": 1, "period_s": 2}]})",
     "interferers[0].duration_s is 0, but must be more than 0 and at most period_s, which is 2 (line 1, "
     "column 18)"},
    {"slow_link_without_rate", R"({"faults": [{"kind": "slow_link"}]})",
     "faults[0].bytes_per_second is 0, but must be 1 or more for slow_link, otherwise 0 (line 1, column 13)"},
    {"rate_without_slow_link", R"({"faults": [{"kind": "failing_read", "bytes_per_second": 1}]})",
     "faults[0].bytes_per_second is 1, but must be 1 or more for slow_link, otherwise 0 (line 1, column 58)"},
    {"too_many", many_targets(),
     "targets[64] is one of 65 entries, but there must be at most 64 (line 1, column 2318)"},
};

INSTANTIATE_TEST_SUITE_P(files, invalid_scene_file, testing::ValuesIn(invalid_scenes),
                         [](const auto &tested) { return tested.param.name; });

TEST(scene_file, every_key_and_value_is_documented)
{
    std::stringstream text;
    text << std::ifstream(SIMULATOR_DOCUMENT).rdbuf();
    const std::string document = text.str();
    for (const zet_simulator::scene_section &section : zet_simulator::scene_sections)
    {
        EXPECT_THAT(document, HasSubstr(std::string("### `") + section.name + "`"));
        for (uint32_t i = 0; i < section.field_count; ++i)
        {
            EXPECT_THAT(document, HasSubstr(std::string("`") + section.fields[i].name + "`"));
        }
    }
    for (const zet_simulator::scene_section *section :
         {&zet_simulator::scene_oscillations, &zet_simulator::scene_keyframes})
    {
        EXPECT_THAT(document, HasSubstr(std::string("| `") + section->name + "` |"));
        for (uint32_t i = 0; i < section->field_count; ++i)
        {
            EXPECT_THAT(document, HasSubstr(std::string("`") + section->fields[i].name + "`"));
        }
    }
    for (size_t kind = 0; kind < std::size(zet_simulator::body_words); ++kind)
    {
        const zet_simulator::scene_section &section = zet_simulator::body_sections[kind];
        EXPECT_THAT(document, HasSubstr(std::string("| `") + zet_simulator::body_words[kind] + "` |"));
        for (uint32_t i = 0; i < section.field_count; ++i)
        {
            EXPECT_THAT(document, HasSubstr(std::string("`") + section.fields[i].name + "`"));
        }
    }
    for (const char *word : zet_simulator::scene_fluctuation_words)
    {
        EXPECT_THAT(document, HasSubstr(std::string("`") + word + "`"));
    }
    for (const char *word : zet_simulator::scene_fault_words)
    {
        EXPECT_THAT(document, HasSubstr(std::string("| `") + word + "` |"));
    }
}

TEST(scene_file, examples_are_valid)
{
    size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(EXAMPLE_SCENES))
    {
        SCOPED_TRACE(entry.path());
        example_scene(entry.path().stem());
        ++files;
    }
    EXPECT_GE(files, 5U);
}

} // namespace
