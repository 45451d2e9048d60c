/** @file
 * Tests that the figures of a plan are those of a simulated server.
 *
 * The environment variable VANTOR_CAMPAIGN_SIZE sets the number of generated documents.
 */
#include "vantor/configuration.h"
#include "vantor/plan.h"

#include <chrono>
#include <random>
#include <set>

#include <gmock/gmock.h>

#include "configuration/check/configuration_rules.h"
#include "configuration/sensor_knowledge.h"
#include "item_document.h"
#include "simulated_server.h"
#include "vantor/configuration_check.h"
#include "vantor/errors.h"
#include "vantor/reported_plan.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::document_with;
using testing::IsEmpty;

/** Generates valid documents; the same seed gives the same documents. */
class document_maker
{
public:
    explicit document_maker(unsigned seed) : random_(seed)
    {
    }

    /** A document of one or two groups. */
    json document()
    {
        json result = {{"groups", json::array()}};
        int sensor = 1;
        for (int group = pick(1, 2); group > 0; --group)
        {
            auto items = json::array();
            for (int item = pick(1, 2); item > 0; --item)
            {
                items.push_back(make_item(1 + sensor++ % 3));
            }
            result["groups"].push_back(std::move(items));
        }
        if (pick(0, 2) == 0)
        {
            result["max_update_rate"] = pick(-1, 100);
        }
        fault_list found;
        check_rules(result, found);
        return found.count() == 0 ? result : document();
    }

private:
    int pick(int lowest, int highest)
    {
        return std::uniform_int_distribution<>(lowest, highest)(random_);
    }

    std::string pick_word(const char *member)
    {
        const std::vector<std::string> words = member_schema(member)["enum"];
        return words[static_cast<size_t>(pick(0, static_cast<int>(words.size()) - 1))];
    }

    json make_item(int sensor)
    {
        json item = {{"sensor_id", sensor}, {"config", make_config()}};
        if (pick(0, 2) == 0)
        {
            item["cca_enable"] = true;
            item["cca_debug"] = pick(0, 1) == 1;
        }
        return item;
    }

    json make_config()
    {
        json config = {{"inter_frame_idle_state", pick_word("inter_frame_idle_state")},
                       {"inter_sweep_idle_state", pick_word("inter_sweep_idle_state")},
                       {"sweeps_per_frame", pick(1, 40)}};
        if (pick(0, 3) == 0)
        {
            config["sweep_rate"] = pick(1, 100);
        }
        if (pick(0, 1) == 0)
        {
            config["frame_rate"] = pick(1, 10);
        }
        if (pick(0, 1) == 0)
        {
            config.update(make_subsweep());
            return config;
        }
        for (int count = pick(1, 4); count > 0; --count)
        {
            config["subsweeps"].push_back(make_subsweep());
        }
        return config;
    }

    json make_subsweep()
    {
        return {{"start_point", pick(-1000, 3000)},
                {"num_points", pick(1, 300)},
                {"step_length", pick(1, 30)},
                {"profile", pick(1, 5)},
                {"hwaas", pick(1, 511)},
                {"prf", pick_word("prf")}};
    }

    std::mt19937 random_;
};

/** Configures a server; null if it refuses the document. */
std::shared_ptr<const session_metadata> configure(client &server, const json &document)
{
    try
    {
        return server.configure(document);
    }
    catch (const server_error &)
    {
        return nullptr;
    }
}

/** Compares an item with what the server reports about it. */
void expect_equal(const item_plan &item, const item_layout &layout, const item_configuration &configuration)
{
    EXPECT_EQ(item.group, layout.group);
    EXPECT_EQ(item.index, layout.index);
    EXPECT_EQ(item.sensor_id, configuration.sensor_id);
    EXPECT_EQ(item.sweeps, layout.sweeps());
    EXPECT_EQ(item.sweep_length, layout.sweep_length);
    EXPECT_EQ(item.frame_length(), layout.frame_length);
    EXPECT_EQ(item.high_speed_mode, layout.high_speed_mode);
    EXPECT_FLOAT_EQ(static_cast<float>(item.max_sweep_rate), static_cast<float>(layout.max_sweep_rate));
    EXPECT_FLOAT_EQ(static_cast<float>(item.base_step_m), static_cast<float>(layout.base_step_length_m));
    const auto &distances = layout.distances_m;
    ASSERT_EQ(item.subsweeps.size(), layout.subsweeps.size());
    for (size_t i = 0; i < item.subsweeps.size(); ++i)
    {
        const auto &subsweep = item.subsweeps[i];
        EXPECT_EQ(subsweep.offset, layout.subsweeps[i].offset);
        EXPECT_EQ(subsweep.points, layout.subsweeps[i].length);
        EXPECT_NEAR(subsweep.first_m, distances[subsweep.offset], 1e-6);
        EXPECT_NEAR(subsweep.last_m, distances[subsweep.offset + subsweep.points - 1], 1e-6);
    }
}

/** Compares the length of a frame with the longest one according to the plan. */
void expect_length_of_frame(client &server, const session_plan &session)
{
    const auto before = server.bytes_received();
    EXPECT_NO_THROW(server.single_frame());
    const auto length = server.bytes_received() - before;
    EXPECT_LE(length, session.frame_bytes());
    // Short numbers, and "true" instead of "false".
    EXPECT_GE(length + 40 * session.items.size(), session.frame_bytes());
}

/** Compares the frame rate with that of the session. */
void expect_frame_rate(const client &server, const json &document, const session_metadata &metadata)
{
    const double nominal = nominal_frame_rate(document, metadata, server.server());
    // The period is whole ticks.
    EXPECT_NEAR(plan(document).frame_rate, nominal, 1e-3 * nominal);
}

/** Whether the sensors of a document have different frame rates. */
bool has_different_rates(const json &document)
{
    std::set<double> rates;
    for (const auto &item : list_items(document))
    {
        rates.insert(item.frame_rate);
    }
    rates.erase(0.0);
    return rates.size() > 1;
}

TEST(plan_agreement, exists_for_generated_documents)
{
    const auto server = test::start_simulated_server();
    unsigned accepted = 0;
    unsigned different = 0;
    for (unsigned seed = 0; seed < test::campaign_size(); ++seed)
    {
        const auto document = document_maker(seed).document();
        SCOPED_TRACE(document);
        const auto session = plan(document);
        const auto metadata = configure(*server, document);
        EXPECT_EQ(metadata == nullptr, !check_configuration(document).empty());
        if (metadata == nullptr)
        {
            continue;
        }
        ++accepted;
        different += has_different_rates(document) ? 1 : 0;
        const auto items = list_items(document);
        ASSERT_EQ(session.items.size(), metadata->items.size());
        for (size_t i = 0; i < items.size(); ++i)
        {
            expect_equal(session.items[i], metadata->items[i], items[i]);
        }
        expect_frame_rate(*server, document, *metadata);
        expect_length_of_frame(*server, session);
        server->end();
    }
    EXPECT_GT(accepted, test::campaign_size() / 2);
    // About every fiftieth document has them.
    EXPECT_GE(different, test::campaign_size() / 200);
}

TEST(plan_agreement, exists_at_the_highest_rates)
{
    const auto server = test::start_simulated_server();
    for (const json &given :
         {json::object(), json({{"sweeps_per_frame", 9}}),
          json({{"sweeps_per_frame", 5}, {"sweep_rate", 77}}),
          json({{"subsweeps", {{{"profile", 1}, {"hwaas", 100}}, {{"prf", "5_2_MHz"}}}}}),
          json({{"inter_frame_idle_state", "sleep"}, {"inter_sweep_idle_state", "sleep"}})})
    {
        for (const char *rate : {"frame_rate", "sweep_rate"})
        {
            if (given.contains(rate))
            {
                continue;
            }
            auto config = given;
            config[rate] = 1e6;
            const auto faults = check_configuration(document_with(config));
            ASSERT_EQ(faults.size(), 1U) << config;
            EXPECT_EQ(configure(*server, document_with(config)), nullptr) << config;
            const double highest = faults[0].nearest;
            config[rate] = highest;
            EXPECT_THAT(check_configuration(document_with(config)), IsEmpty()) << config;
            EXPECT_NE(configure(*server, document_with(config)), nullptr) << config;
            server->end();
            config[rate] = highest * 1.001;
            EXPECT_EQ(configure(*server, document_with(config)), nullptr) << config;
        }
    }
}

TEST(plan_agreement, exists_for_the_frames_of_a_stream_without_pace)
{
    const auto server = test::start_simulated_server();
    auto document = document_with({{"sweeps_per_frame", 20}, {"hwaas", 200}});
    document["groups"][0].push_back({{"sensor_id", 2}, {"config", {{"hwaas", 100}}}});
    document["groups"].push_back(json::array({{{"sensor_id", 2}, {"config", {{"hwaas", 511}}}}}));
    server->configure(document);
    const auto first = server->single_frame().items()[0].tick;
    constexpr int frames = 50;
    for (int i = 1; i < frames; ++i)
    {
        server->single_frame();
    }
    const auto last = server->single_frame().items()[0].tick;
    const double seconds = (last - first) / server->server().ticks_per_second;
    const double expected = frames / plan(document).max_frame_rate;
    EXPECT_NEAR(seconds, expected, 0.01 * expected);
}

TEST(plan_agreement, exists_for_sensors_with_different_frame_rates)
{
    const auto server = test::start_simulated_server();
    auto document = document_with({{"frame_rate", 50}});
    document["groups"][0].push_back({{"sensor_id", 2}, {"config", {{"frame_rate", 10}}}});
    server->configure(document);
    server->start();
    const auto next_tick = [&] {
        return server->receive_frame(std::chrono::minutes(1)).value().items()[1].tick;
    };
    const auto first = next_tick();
    constexpr int frames = 20;
    for (int i = 1; i < frames; ++i)
    {
        next_tick();
    }
    const auto last = next_tick();
    server->stop();
    const double seconds = (last - first) / server->server().ticks_per_second;
    EXPECT_NEAR(frames / seconds, plan(document).frame_rate, 0.01);
}

TEST(plan_agreement, is_reported_by_the_server)
{
    const auto server = test::start_simulated_server();
    const auto document = document_with({{"sweeps_per_frame", 16}});
    auto session = plan(document);
    auto metadata = *server->configure(document);
    auto expected = session;
    apply_metadata(session, metadata);
    EXPECT_FALSE(session.sensors_assumed);
    EXPECT_NEAR(session.items[0].max_sweep_rate, expected.items[0].max_sweep_rate, 1e-3);
    metadata.items[0].max_sweep_rate = 500.0;
    metadata.items[0].high_speed_mode = false;
    metadata.items[0].base_step_length_m *= 2.0;
    apply_metadata(session, metadata);
    EXPECT_EQ(session.items[0].sweep_rate, 500.0);
    EXPECT_FALSE(session.items[0].high_speed_mode);
    EXPECT_NEAR(*session.items[0].greatest_velocity(), 0.625, 1e-9);
    EXPECT_NEAR(session.items[0].subsweeps[0].first_m, 0.4, 1e-6);
    EXPECT_NEAR(session.items[0].subsweeps[0].step_m, 0.005, 1e-8);
    EXPECT_NEAR(session.items[0].subsweeps[0].last_m, 0.4 + 159 * 0.005, 1e-6);
    EXPECT_NEAR(session.items[0].subsweeps[0].pulse_width_m, 0.198, 1e-9);
}

} // namespace
} // namespace vantor
