/** @file
 * Tests that docs/configuration.schema.json and docs/k330.json describe the simulated sensor.
 */
#include <cmath>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "simulated_sensor.h"
#include "zet_config_internal.h"
#include "zet_config_subsweep.h"
#include "zet_hal_integration_k330.h"
#include "zet_nox_k330.h"

namespace
{

using json = nlohmann::ordered_json;

json read(const char *name)
{
    std::ifstream file(std::string(DOCUMENTS "/") + name);
    return json::parse(file);
}

/** The schema of a member of a configuration. */
const json &configuration_definition(const std::string &name)
{
    static const json schema = read("configuration.schema.json");
    return schema["$defs"][name];
}

/** The value of a figure in k330.json. */
const json &figure(const std::string &name)
{
    static const json knowledge = read("k330.json");
    return knowledge["figures"].at(name).at("value");
}

using config_setter = std::function<void(zet_config_t *, double)>;

/** Converts like C, also values beyond the range of the type. */
template <typename value_t> value_t convert(double value)
{
    if constexpr (std::is_floating_point_v<value_t>)
    {
        return static_cast<value_t>(value);
    }
    return static_cast<value_t>(static_cast<int64_t>(value));
}

template <typename value_t> config_setter setter(void (*set)(zet_config_t *, value_t))
{
    return [set](zet_config_t *config, double value) { set(config, convert<value_t>(value)); };
}

template <typename value_t> config_setter setter(void (*set)(zet_config_t *, value_t, uint8_t))
{
    return [set](zet_config_t *config, double value) { set(config, convert<value_t>(value), 0); };
}

/** Functions that set a member of a configuration, in sub-sweep 0 if it is a member of sub-sweeps. */
const std::map<std::string, config_setter> setters = {
    {"frame_rate", setter(zet_config_frame_rate_set)},
    {"sweeps_per_frame", setter(zet_config_sweeps_per_frame_set)},
    {"sweep_rate", setter(zet_config_sweep_rate_set)},
    {"continuous_sweep_mode", setter(zet_config_continuous_sweep_mode_set)},
    {"double_buffering", setter(zet_config_double_buffering_set)},
    {"subtract_in_buffer", setter(zet_config_subtract_in_buffer_set)},
    {"inter_frame_idle_state", setter(zet_config_inter_frame_idle_state_set)},
    {"inter_sweep_idle_state", setter(zet_config_inter_sweep_idle_state_set)},
    {"subsweeps", setter(zet_config_num_subsweeps_set)},
    {"start_point", setter(zet_config_subsweep_start_point_set)},
    {"num_points", setter(zet_config_subsweep_num_points_set)},
    {"step_length", setter(zet_config_subsweep_step_length_set)},
    {"profile", setter(zet_config_subsweep_profile_set)},
    {"hwaas", setter(zet_config_subsweep_hwaas_set)},
    {"receiver_gain", setter(zet_config_subsweep_receiver_gain_set)},
    {"enable_tx", setter(zet_config_subsweep_enable_tx_set)},
    {"enable_loopback", setter(zet_config_subsweep_enable_loopback_set)},
    {"phase_enhancement", setter(zet_config_subsweep_phase_enhancement_set)},
    {"iq_imbalance_compensation", setter(zet_config_subsweep_iq_imbalance_compensation_set)},
    {"prf", setter(zet_config_subsweep_prf_set)},
};

using member_values = std::map<std::string, json>;

/** A member's value as a number. For a string this is its index in the schema. */
double number(const std::string &name, const json &value)
{
    const auto words = configuration_definition(name).value("enum", std::vector<std::string>());
    const auto word = std::find(words.begin(), words.end(), value);
    return word != words.end()  ? static_cast<double>(word - words.begin())
           : value.is_boolean() ? static_cast<double>(value.get<bool>())
                                : value.get<double>();
}

void set(zet_config_t *config, const member_values &members)
{
    for (const auto &[name, value] : members)
    {
        setters.at(name)(config, number(name, value));
    }
}

/** Whether the simulator accepts a configuration. Otherwise its log states the reason. */
bool accepts(const member_values &members)
{
    zet_config_t *config = zet_config_create();
    set(config, members);
    uint32_t size = 0;
    const bool accepted = zet_nox_get_buffer_size(config, &size);
    zet_config_destroy(config);
    return accepted;
}

/** Whether a member's value is in its range, even if it conflicts with other members. */
bool is_in_range(const std::string &name, double value)
{
    const simulation simulation;
    const std::string logged = name == "subsweeps" ? "the number of sub-sweeps" : name + "( of sub-sweep 0)?";
    const std::regex refusal(": " + logged + " is [^,]*, but must be ");
    member_values members = {{"num_points", 1}};
    members[name] = value;
    return accepts(members) || !std::regex_search(simulation::log(), refusal);
}

/** The limits of a member, if it is a number, a string or a list. */
std::optional<std::pair<double, double>> limits(const json &member)
{
    if (member.contains("anyOf"))
    {
        return limits(member["anyOf"][1]);
    }
    if (member.contains("enum"))
    {
        return std::pair(0.0, static_cast<double>(member["enum"].size()) - 1.0);
    }
    for (const auto &[lowest, highest] : {std::pair("minimum", "maximum"), std::pair("minItems", "maxItems")})
    {
        if (member.contains(lowest))
        {
            return std::pair(member[lowest].get<double>(), member[highest].get<double>());
        }
    }
    return std::nullopt;
}

TEST(sensor_documents, have_the_limits_of_the_simulator)
{
    int tested = 0;
    for (const auto &[name, reference] : configuration_definition("config")["properties"].items())
    {
        const json &member = configuration_definition(name);
        const auto range = limits(member);
        EXPECT_EQ(range.has_value(), member["type"] != "boolean") << name;
        if (!range)
        {
            continue;
        }
        const bool is_integer = member["type"] != "number";
        const auto beyond = [is_integer](double limit, double direction) {
            const auto next = std::nextafter(static_cast<float>(limit), static_cast<float>(direction));
            return is_integer ? limit + (direction > limit ? 1.0 : -1.0) : static_cast<double>(next);
        };
        EXPECT_TRUE(is_in_range(name, range->first)) << name;
        EXPECT_TRUE(is_in_range(name, range->second)) << name;
        EXPECT_FALSE(is_in_range(name, beyond(range->first, -1.0e9))) << name;
        EXPECT_FALSE(is_in_range(name, beyond(range->second, 1.0e9))) << name;
        EXPECT_TRUE(is_integer || is_in_range(name, 0.0)) << name;
        ++tested;
    }
    EXPECT_EQ(tested, 13);
}

TEST(sensor_documents, have_the_farthest_points_of_the_simulator)
{
    const simulation simulation;
    for (const auto &[prf, point] : figure("farthest_point").items())
    {
        const int farthest = point;
        EXPECT_TRUE(accepts({{"prf", prf}, {"num_points", 1}, {"start_point", farthest}})) << prf;
        EXPECT_FALSE(accepts({{"prf", prf}, {"num_points", 1}, {"start_point", farthest + 1}})) << prf;
    }
    EXPECT_EQ(figure("farthest_point").size(), configuration_definition("prf")["enum"].size());
}

TEST(sensor_documents, have_the_largest_frame_of_the_simulator)
{
    const simulation simulation;
    const auto accepts_samples = [](int samples) {
        int sweeps = 5;
        while (samples % sweeps != 0)
        {
            ++sweeps;
        }
        return accepts({{"num_points", samples / sweeps}, {"sweeps_per_frame", sweeps}, {"prf", "5_2_MHz"}});
    };
    const int most = figure("most_samples");
    EXPECT_TRUE(accepts_samples(most)) << simulation::log();
    EXPECT_FALSE(accepts_samples(most + 1));
}

TEST(sensor_documents, have_the_sizes_of_the_headers)
{
    EXPECT_EQ(figure("sample_bytes"), sizeof(zet_int16_complex_t));
    EXPECT_EQ(figure("calibration_bytes"), sizeof(zet_cal_result_t));
    EXPECT_EQ(configuration_definition("subsweeps")["maxItems"], ZET_MAX_NUM_SUBSWEEPS);
    const auto digits = std::to_string(2 * sizeof(zet_cal_result_t));
    const json schema = read("configuration.schema.json");
    EXPECT_EQ(schema["properties"]["calibration_info"]["items"]["properties"]["data"]["pattern"],
              "^[0-9a-fA-F]{" + digits + "}$");
}

TEST(sensor_documents, have_the_base_step_of_the_simulator)
{
    EXPECT_EQ(zet_processing_points_to_meter(1), figure("base_step").get<float>());
}

/** Duration of a frame, from measure to interrupt, in microseconds. */
double frame_time_us(const simulated_sensor &sensor)
{
    const auto clock = zet_simulator_virtual_clock();
    const uint64_t start_us = clock.now_us();
    EXPECT_TRUE(zet_sensor_measure(sensor.sensor));
    EXPECT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 10000));
    return static_cast<double>(clock.now_us() - start_us);
}

/** The result of a measurement: the samples of a frame, and times. */
struct outcome
{
    std::vector<std::complex<float>> samples;
    double shortest_sweep_us;
    double frame_us;
};

outcome measure(const member_values &members, const zet_simulator_scene_t *scene = nullptr,
                bool cca_enabled = false)
{
    const simulation simulation(1, scene);
    simulated_sensor sensor;
    set(sensor.config, members);
    if (cca_enabled)
    {
        sensor.enable_cca();
    }
    EXPECT_TRUE(sensor.prepare()) << simulation::log();
    outcome result = {sensor.measure().samples, 1.0e6 / static_cast<double>(sensor.metadata.max_sweep_rate),
                      0};
    result.frame_us = frame_time_us(sensor);
    return result;
}

TEST(sensor_documents, have_the_defaults_of_the_simulator)
{
    member_values defaults;
    for (const auto &[name, reference] : configuration_definition("config")["properties"].items())
    {
        if (name != "subsweeps")
        {
            defaults[name] = configuration_definition(name)["default"];
        }
    }
    const auto expected = measure({});
    const auto found = measure(defaults);
    EXPECT_EQ(found.samples, expected.samples);
    EXPECT_EQ(found.shortest_sweep_us, expected.shortest_sweep_us);
    EXPECT_EQ(found.frame_us, expected.frame_us);
}

/** The shortest sweep period according to the figures, in microseconds. Their names end with @p mode. */
double sweep_us(const std::string &prf, int points, int subsweeps, const std::string &idle_state,
                const std::string &mode)
{
    const double pulses = 8.0 + figure("settling_pulses" + mode).get<double>();
    const double pulse_us = 1.0e6 / figure("pulse_frequency").at(prf).get<double>();
    const double setup_us = figure("setup_time" + mode);
    return subsweeps * (setup_us + points * pulses * pulse_us) +
           figure("wake_time").at(idle_state).get<double>();
}

TEST(sensor_documents, have_the_sweep_times_of_the_simulator)
{
    for (const std::string prf : configuration_definition("prf")["enum"])
    {
        for (const int points : {1, 160})
        {
            const member_values members = {{"prf", prf}, {"num_points", points}, {"hwaas", 8}};
            EXPECT_NEAR(measure(members).shortest_sweep_us, sweep_us(prf, points, 1, "ready", "_high_speed"),
                        1e-3);
            for (const std::string state : {"sleep", "deep_sleep"})
            {
                auto idle = members;
                idle["inter_sweep_idle_state"] = state;
                EXPECT_NEAR(measure(idle).shortest_sweep_us, sweep_us(prf, points, 1, state, ""), 1e-3);
            }
        }
    }
    const auto expected = sweep_us("15_6_MHz", 160, 3, "ready", "");
    EXPECT_NEAR(measure({{"subsweeps", 3}}).shortest_sweep_us, expected, 1e-3);
}

TEST(sensor_documents, have_the_frame_times_of_the_simulator)
{
    const double sweep =
        sweep_us("15_6_MHz", 160, 1, "ready", "_high_speed") - figure("wake_time").at("ready").get<double>();
    for (const auto &[state, wake_us] : figure("wake_time").items())
    {
        EXPECT_NEAR(measure({{"inter_frame_idle_state", state}}).frame_us, wake_us.get<double>() + sweep,
                    0.51);
    }
    EXPECT_NEAR(measure({}, nullptr, true).frame_us - measure({}).frame_us, figure("cca_time").get<double>(),
                0.5);
}

TEST(sensor_documents, have_the_timer_clock_of_the_simulator)
{
    const double clock = figure("timer_clock");
    const member_values still = {{"num_points", 1}, {"sweeps_per_frame", 1}};
    for (const double rate : {7001.0, 9999.75, 20000.0})
    {
        auto members = still;
        members["sweep_rate"] = rate;
        members["sweeps_per_frame"] = 4001;
        const double period_us = 1.0e6 * std::floor(clock / rate + 0.5) / clock;
        EXPECT_NEAR(measure(members).frame_us - measure(still).frame_us, 4000 * period_us, 1.01) << rate;
    }
}

/** The members of a sub-sweep that measures a strong target without distortion. */
member_values clear_view()
{
    return {{"hwaas", 511},
            {"phase_enhancement", true},
            {"iq_imbalance_compensation", true},
            {"subtract_in_buffer", true}};
}

TEST(sensor_documents, have_the_pulse_widths_of_the_simulator)
{
    const auto scene = scene_with_target(2.0F, 10.0F);
    const double base_step = figure("base_step");
    for (const auto &[profile, width] : figure("pulse_width").items())
    {
        auto members = clear_view();
        members["profile"] = std::stoi(profile);
        members["start_point"] = 600;
        members["num_points"] = 400;
        const auto samples = measure(members, &scene).samples;
        const double half = static_cast<double>(std::abs(samples[strongest(samples)])) / 2.0;
        // The part of each interval between two points that is above half of the height.
        double found = 0.0;
        for (size_t i = 1; i < samples.size(); ++i)
        {
            const double low = std::min(std::abs(samples[i - 1]), std::abs(samples[i]));
            const double high = std::max(std::abs(samples[i - 1]), std::abs(samples[i]));
            found += std::clamp((high - half) / std::max(high - low, 1e-9), 0.0, 1.0) * base_step;
        }
        EXPECT_NEAR(found, width.get<double>(), 0.01 * width.get<double>()) << profile;
    }
    EXPECT_EQ(figure("pulse_width").size(), configuration_definition("profile")["maximum"]);
}

/** The dip between the echoes of two equal targets, with points every quarter of the pulse width, in dB. */
double dip_between(const std::string &profile, double separation_m, double offset_m)
{
    const double width = figure("pulse_width").at(profile);
    const double base_step = figure("base_step");
    const double near_m = 2.0 + offset_m;
    const double far_m = near_m + separation_m;
    // The level falls with the square of the distance.
    auto scene = scene_with_target(static_cast<float>(near_m), 2.0F);
    scene.target_count = 2;
    scene.targets[1] = scene.targets[0];
    scene.targets[1].distance_m = static_cast<float>(far_m);
    scene.targets[1].strength_m2 *= static_cast<float>(std::pow(far_m / near_m, 4.0));
    auto members = clear_view();
    const int step = static_cast<int>(width / 4.0 / base_step);
    members["profile"] = std::stoi(profile);
    members["start_point"] = static_cast<int>((2.0 - width) / base_step);
    members["step_length"] = step;
    members["num_points"] = static_cast<int>((separation_m + 2.0 * width) / base_step) / step + 1;
    const auto samples = measure(members, &scene).samples;
    const auto level = [&](size_t i) { return std::abs(samples[i]); };
    const auto middle = static_cast<size_t>((near_m + separation_m / 2.0 - 2.0 + width) / base_step / step);
    double left = 0.0;
    double right = 0.0;
    double lowest = level(middle);
    for (size_t i = 0; i < samples.size(); ++i)
    {
        double &peak = i <= middle ? left : right;
        peak = std::max<double>(peak, level(i));
    }
    for (const size_t i : {middle - 1, middle, middle + 1})
    {
        lowest = std::min<double>(lowest, level(i));
    }
    return 20.0 * std::log10(std::min(left, right) / lowest);
}

TEST(sensor_documents, have_the_separation_of_the_simulator)
{
    const double separation = figure("separation");
    for (const auto &[profile, width] : figure("pulse_width").items())
    {
        double least = 1000.0;
        double least_at_a_width = 1000.0;
        // Over a quarter of a pulse width the points move against the echoes, and the phases turn.
        for (int i = 0; i < 24; ++i)
        {
            const double offset = width.get<double>() / 4.0 * i / 24.0;
            const double phase = figure("wavelength").get<double>() / 2.0 * (i % 8) / 8.0;
            least = std::min(least, dip_between(profile, separation * width.get<double>() + phase, offset));
            least_at_a_width =
                std::min(least_at_a_width, dip_between(profile, width.get<double>() + phase, offset));
        }
        EXPECT_GE(least, 3.0) << profile;
        EXPECT_LT(least_at_a_width, 3.0) << profile;
    }
}

TEST(sensor_documents, have_the_gain_steps_of_the_simulator)
{
    const auto scene = scene_with_target(2.0F, 10.0F);
    const auto level = [&scene](int gain) {
        auto members = clear_view();
        members["start_point"] = 800;
        members["num_points"] = 1;
        members["receiver_gain"] = gain;
        return 20.0 * std::log10(std::abs(measure(members, &scene).samples[0]));
    };
    EXPECT_NEAR(level(20) - level(0), 20.0 * figure("gain_step").get<double>(), 0.2);
}

TEST(sensor_documents, have_the_wavelength_of_the_simulator)
{
    const auto sample_at = [](double distance_m) {
        const auto scene = scene_with_target(static_cast<float>(distance_m), 10.0F);
        auto members = clear_view();
        members["profile"] = 5;
        members["start_point"] = 800;
        members["num_points"] = 1;
        return measure(members, &scene).samples[0];
    };
    const double wavelength = figure("wavelength");
    EXPECT_NEAR(turns_between(sample_at(2.0), sample_at(2.0 + 10.125 * wavelength)), 0.25, 0.01);
}

} // namespace
