/** @file
 * Tests that schema and server agree: both accept or both refuse each of many generated documents.
 *
 * The documents avoid the differences that docs/configuration.md lists. The environment variable
 * VANTOR_CAMPAIGN_SIZE sets their number.
 */
#include <random>
#include <string>

#include <gmock/gmock.h>

#include "simulated_server.h"
#include "vantor/configuration.h"
#include "vantor/configuration_check.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** Generates valid and invalid documents; the same seed gives the same documents. */
class document_maker
{
public:
    explicit document_maker(unsigned seed) : random_(seed)
    {
    }

    /** A document of one or two groups. */
    json document()
    {
        json result = json::object();
        auto groups = json::array();
        for (size_t i = 0, count = chance(5) ? 2 : 1; i < count; ++i)
        {
            groups.push_back(chance(30) ? json::array() : json::array({item()}));
        }
        result["groups"] = std::move(groups);
        maybe(result, "max_update_rate", {10, 25.5}, 8);
        maybe(result, "enable_log", {"ERROR", "WARNING", "warning"}, 10);
        maybe(result, "calibration_info", {json::array()}, 40);
        return result;
    }

private:
    /** True once in this many calls, on average. */
    bool chance(int times)
    {
        return std::uniform_int_distribution<>(1, times)(random_) == 1;
    }

    /** Sets a member to one of the values, once in this many calls. */
    void maybe(json &object, const char *name, const std::vector<json> &values, int times)
    {
        if (chance(times))
        {
            object[name] = values[std::uniform_int_distribution<size_t>(0, values.size() - 1)(random_)];
        }
    }

    json item()
    {
        json result = {{"sensor_id", 1}, {"config", config()}};
        maybe(result, "sensor_id", {2, 3, 0, -1}, 6);
        maybe(result, "config", {1, json::array()}, 40);
        maybe(
            result, "cpd_overrides",
            {json::object(), {{"tx_duration", 20}}, {{"gain", 1}}, {{"rx_duration", "long"}}, json::array()},
            8);
        maybe(result, "cca_enable", {true, false}, 6);
        return result;
    }

    json config()
    {
        json result = json::object();
        maybe(result, "sweeps_per_frame", {1, 8, 102, 103, 4095, 0, 4096, 2.5}, 4);
        maybe(result, "inter_frame_idle_state", {"deep_sleep", "sleep", "ready", "awake"}, 6);
        maybe(result, "inter_sweep_idle_state", {"deep_sleep", "sleep", "ready", "Ready"}, 6);
        maybe(result, "double_buffering", {true, false, 1}, 8);
        maybe(result, "subtract_in_buffer", {true, "yes"}, 12);
        maybe(result, chance(2) ? "frame_rate" : "sweep_rate", {0, 0.01, 0.009, -1, 2e6, "fast"}, 8);
        maybe(result, "no_such_member", {1}, 60);
        if (chance(3))
        {
            result["subsweeps"] = json::array();
            for (int i = std::uniform_int_distribution<>(0, 5)(random_); i > 0; --i)
            {
                result["subsweeps"].push_back(subsweep(25));
            }
        }
        else
        {
            result.update(subsweep(10));
        }
        maybe(result, "profile", {2}, 40);
        return result;
    }

    json subsweep(int times)
    {
        json result = json::object();
        maybe(result, "start_point", {0, -1000, -1001, 3000, 3684, 3685, 20000, 20001}, times);
        maybe(result, "num_points", {1, 100, 0, 4095, 4096, "many"}, times);
        maybe(result, "step_length", {1, 24, 0, 1000, 1001}, times);
        maybe(result, "profile", {1, 5, 0, 6, 2.0, 2.5}, times);
        maybe(result, "hwaas", {1, 511, 0, 512}, times);
        maybe(result, "receiver_gain", {0, 23, 24, -1}, times);
        maybe(result, "prf", {"19_5_MHz", "13_0_MHz", "8_7_MHz", "6_5_MHz", "5_2_MHz", "4_0_MHz"}, times);
        maybe(result, "enable_tx", {true, false, "on"}, times);
        maybe(result, "phase_enhancement", {true, 0}, times);
        return result;
    }

    std::mt19937 random_;
};

/** A simulated server that reports whether it accepts a document. */
class validating_server
{
public:
    /** Returns why the server refuses the document; empty if it accepts it. */
    std::string refusal(const json &document)
    {
        std::string reason;
        try
        {
            server_->configure(document);
        }
        catch (const server_error &failure)
        {
            reason = failure.what();
        }
        server_->end();
        return reason;
    }

private:
    std::unique_ptr<client> server_ = test::start_simulated_server();
};

/** The first fault found by the schema and its rules, as text; empty if there is none. */
std::string first_fault(const json &document)
{
    const auto faults = check_configuration(document);
    return faults.empty() ? "" : faults.front().pointer + ": " + faults.front().got;
}

TEST(schema_agreement, exists_for_generated_documents)
{
    validating_server server;
    const auto count = test::campaign_size();
    unsigned accepted = 0;
    unsigned refused = 0;
    for (unsigned seed = 0; seed < count; ++seed)
    {
        const auto document = document_maker(seed).document();
        const auto fault = first_fault(document);
        const auto refusal = server.refusal(document);
        EXPECT_EQ(fault.empty(), refusal.empty())
            << "seed " << seed << "\n  schema: " << fault << "\n  server: " << refusal << "\n"
            << document;
        ++(refusal.empty() ? accepted : refused);
    }
    EXPECT_GT(accepted, count / 8);
    EXPECT_GT(refused, count / 8);
}

TEST(schema_agreement, exists_for_the_examples)
{
    validating_server server;
    for (const char *name : {"single_sensor.json", "two_sensors.json"})
    {
        const auto document = load_configuration(std::filesystem::path(VANTOR_EXAMPLES) / name);
        EXPECT_EQ(first_fault(document), "") << name;
        EXPECT_EQ(server.refusal(document), "") << name;
    }
}

TEST(schema_agreement, exists_at_the_edges_of_the_rules_between_members)
{
    validating_server server;
    const std::vector<json> configs = {
        {{"continuous_sweep_mode", true}, {"frame_rate", 1}, {"sweeps_per_frame", 4}, {"sweep_rate", 4}},
        {{"continuous_sweep_mode", true}, {"frame_rate", 1}, {"sweeps_per_frame", 4}, {"sweep_rate", 5}},
        {{"continuous_sweep_mode", true}, {"sweeps_per_frame", 4}},
        {{"num_points", 127}, {"sweeps_per_frame", 129}},
        {{"num_points", 128}, {"sweeps_per_frame", 128}},
        {{"start_point", 4453}, {"prf", "13_0_MHz"}},
        {{"start_point", 4454}, {"prf", "13_0_MHz"}},
        {{"start_point", 2915}, {"prf", "19_5_MHz"}},
        {{"start_point", 2916}, {"prf", "19_5_MHz"}},
        {{"start_point", 11371}, {"prf", "5_2_MHz"}},
        {{"start_point", 11372}, {"prf", "5_2_MHz"}},
        {{"inter_frame_idle_state", "sleep"}, {"inter_sweep_idle_state", "sleep"}},
        {{"inter_frame_idle_state", "sleep"}, {"inter_sweep_idle_state", "deep_sleep"}},
    };
    for (const auto &config : configs)
    {
        const json document = {
            {"groups", json::array({json::array({{{"sensor_id", 1}, {"config", config}}})})}};
        EXPECT_EQ(first_fault(document).empty(), server.refusal(document).empty()) << config;
    }
}

/** A document with one item. */
json document_with(json config, json members = json::object())
{
    members["sensor_id"] = members.value("sensor_id", json(1));
    members["config"] = std::move(config);
    return {{"groups", json::array({json::array({std::move(members)})})}};
}

TEST(schema_agreement, differs_where_the_reference_says_so)
{
    validating_server server;
    const auto nothing = json::object();
    auto with_member = document_with(nothing);
    with_member["max_update_rate"] = "fast";
    with_member["update_rate"] = 5;
    const std::vector<json> only_server_accepts = {
        {{"no_such_member", 1}},
        document_with(nothing, {{"no_such_member", 1}}),
        {{"enable_log", 3}},
        {{"enable_diagnostics", 1}},
        document_with(nothing, {{"cca_enable", 1}}),
        document_with(nothing, {{"cca_enable", true}, {"cca_threshold", "high"}}),
        document_with(nothing, {{"cca_enable", true}, {"cca_debug", 0}}),
        document_with({{"frame_rate", 1e-46}}),
        with_member,
        {{"groups", {{"first", json::array({{{"sensor_id", 1}, {"config", nothing}}})}}}},
        {{"groups", 7}},
    };
    for (const auto &document : only_server_accepts)
    {
        EXPECT_NE(first_fault(document), "") << document;
        EXPECT_EQ(server.refusal(document), "") << document;
    }
    const std::vector<json> only_schema_accepts = {
        document_with(nothing, {{"sensor_id", 4}}),
        {{"calibration_info", {{{"sensor_id", 1}, {"data", std::string(480, '0')}}}}},
    };
    for (const auto &document : only_schema_accepts)
    {
        EXPECT_EQ(first_fault(document), "") << document;
        EXPECT_NE(server.refusal(document), "") << document;
    }
}

TEST(schema_agreement, exists_for_numbers_at_the_limits_of_their_types)
{
    validating_server server;
    for (const double rate : {-1e39, -3.4028235e38, -3.4028234e38, -1.0, 0.0, 1e-60, 3.4028234e38,
                              3.40282347e38, 3.4028235e38, 3.4028236e38, 1e39, 1e300})
    {
        for (const char *name : {"update_rate", "max_update_rate"})
        {
            auto document = document_with(json::object());
            document[name] = rate;
            EXPECT_EQ(first_fault(document).empty(), server.refusal(document).empty()) << document;
        }
    }
    const auto nothing = json::object();
    for (const auto &document :
         {document_with({{"num_points", 65546}}), document_with({{"step_length", -65535}}),
          document_with({{"hwaas", 65544}}), document_with({{"sweeps_per_frame", 65537}}),
          document_with({{"receiver_gain", 256}}), document_with({{"profile", 257}}),
          document_with({{"start_point", 4294967376.0}}), document_with({{"frame_rate", 1e39}}),
          document_with({{"subsweeps", {nothing, {{"num_points", 65546}}}}}),
          document_with(nothing, {{"cca_enable", true}, {"cca_threshold", 1e39}})})
    {
        EXPECT_NE(first_fault(document), "") << document;
        EXPECT_NE(server.refusal(document), "") << document;
    }
    for (const double rate : {0.009999998, 0.0099999999, 0.01})
    {
        for (const char *name : {"frame_rate", "sweep_rate"})
        {
            const auto document = document_with({{name, rate}});
            EXPECT_EQ(first_fault(document).empty(), server.refusal(document).empty()) << document;
        }
    }
    for (const double value : {-2147483649.0, -2147483648.0, 70000.0, 2147483647.0, 2147483648.0, 1.5})
    {
        const auto document = document_with(json::object(), {{"cpd_overrides", {{"tx_duration", value}}}});
        EXPECT_EQ(first_fault(document).empty(), server.refusal(document).empty()) << document;
    }
}

} // namespace
} // namespace vantor
