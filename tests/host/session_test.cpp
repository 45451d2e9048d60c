/** @file
 * Tests of the typed form of a server's messages.
 */
#include "vantor/session.h"

#include <cmath>
#include <functional>
#include <random>

#include <gmock/gmock.h>

#include "fake_server.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::example_session;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

/** A frame message of the example session. */
message frame_message(uint32_t number)
{
    message received;
    received.header = example_session().frame_header(number);
    for (const char c : example_session().frame_payload(number))
    {
        received.payload.push_back(static_cast<std::byte>(c));
    }
    return received;
}

/** Metadata of the example session, shared. */
std::shared_ptr<const session_metadata> example_metadata()
{
    return std::make_shared<const session_metadata>(decode_metadata(example_session().metadata));
}

TEST(session, reads_metadata)
{
    const auto metadata = decode_metadata(example_session().metadata);
    EXPECT_EQ(metadata.tick_period, 20000U);
    ASSERT_EQ(metadata.calibrations.size(), 1U);
    EXPECT_EQ(metadata.calibrations[0].sensor_id, 1U);
    EXPECT_EQ(metadata.calibrations[0].temperature, 24);
    EXPECT_EQ(metadata.calibrations[0].data, std::string(480, 'a'));
    ASSERT_EQ(metadata.items.size(), 3U);
    const auto &first = metadata.items[0];
    EXPECT_EQ(first.frame_length, 40U);
    EXPECT_EQ(first.sweep_length, 20U);
    EXPECT_EQ(first.sweeps(), 2U);
    EXPECT_TRUE(first.high_speed_mode);
    EXPECT_DOUBLE_EQ(first.max_sweep_rate, 3125.5);
    EXPECT_DOUBLE_EQ(first.base_step_length_m, 0.0025);
    const auto &second = metadata.items[1];
    EXPECT_EQ(second.group, 0U);
    EXPECT_EQ(second.index, 1U);
    ASSERT_EQ(second.subsweeps.size(), 2U);
    EXPECT_EQ(second.subsweeps[1].offset, 10U);
    EXPECT_EQ(second.subsweeps[1].length, 15U);
    EXPECT_EQ(metadata.items[2].group, 1U);
    EXPECT_EQ(metadata.items[2].index, 0U);
    EXPECT_EQ(metadata.frame_length(), 95U);
}

TEST(session, reads_metadata_without_sensors_and_groups)
{
    const auto metadata = decode_metadata(
        {{"status", "ok"}, {"tick_period", 0}, {"payload_size", 0}, {"metadata", json::array()}});
    EXPECT_TRUE(metadata.calibrations.empty());
    EXPECT_TRUE(metadata.items.empty());
    EXPECT_EQ(metadata.frame_length(), 0U);
}

TEST(session, refuses_metadata_that_contradicts_itself)
{
    const std::vector<std::pair<std::function<void(json &)>, const char *>> cases = {
        {[](json &m) { m.erase("tick_period"); }, "tick_period"},
        {[](json &m) { m["tick_period"] = -1; }, "tick_period"},
        {[](json &m) { m["tick_period"] = 4294967296; }, "tick_period"},
        {[](json &m) { m["calibration_info"] = 3; }, "calibration_info"},
        {[](json &m) { m["calibration_info"][0]["data"] = 3; }, "data"},
        {[](json &m) { m["metadata"] = json::object(); }, "metadata"},
        {[](json &m) { m["metadata"][1] = json::array(); }, "not a list of items"},
        {[](json &m) { m["metadata"][0][0] = 1; }, "calibration_temperature"},
        {[](json &m) { m["metadata"][0][0]["frame_data_length"] = 41; }, "multiple"},
        {[](json &m) { m["metadata"][0][0]["frame_data_length"] = 65536; }, "frame_data_length"},
        {[](json &m) { m["metadata"][0][0]["sweep_data_length"] = 0; }, ""},
        {[](json &m) { m["metadata"][0][0]["high_speed_mode"] = 1; }, "high_speed_mode"},
        {[](json &m) { m["metadata"][0][0]["max_sweep_rate"] = "fast"; }, "max_sweep_rate"},
        {[](json &m) { m["metadata"][0][0]["max_sweep_rate"] = -5; }, "negative \"max_sweep_rate\": -5"},
        {[](json &m) { m["metadata"][0][0]["base_step_length_m"] = -1e300; },
         "impossible \"base_step_length_m\": -1e+300"},
        {[](json &m) { m["metadata"][0][0]["base_step_length_m"] = 0; }, "base_step_length_m"},
        {[](json &m) { m["metadata"][0][0]["base_step_length_m"] = 1.5; }, "base_step_length_m"},
        {[](json &m) { m["metadata"][0][1]["subsweep_data_offset"] = {0}; }, "offsets"},
        {[](json &m) { m["metadata"][0][1]["subsweep_data_offset"][1] = 11; }, "subsweep_data_length"},
        {[](json &m) { m["metadata"][0][1]["subsweep_data_offset"][0] = -1; }, "subsweep_data_offset"},
        {[](json &m) {
             m["metadata"][0][1]["subsweep_data_offset"] = {0, 9};
         },
         "sub-sweeps that overlap"},
        {[](json &m) { m["unknown"] = json(50001, 0); }, "more than 50000 values"},
    };
    for (const auto &[spoil, reason] : cases)
    {
        auto document = example_session().metadata;
        spoil(document);
        EXPECT_THAT([&] { decode_metadata(document); }, ThrowsMessage<protocol_error>(HasSubstr(reason)));
    }
}

TEST(session, refuses_metadata_of_frames_that_no_message_can_contain)
{
    auto document = example_session().metadata;
    auto item = document["metadata"][0][0];
    item["frame_data_length"] = 65535;
    item["sweep_data_length"] = 65535;
    const size_t most = message_limits().payload / sizeof(sample) / 65535;
    document["metadata"] = json::array({json(most, item)});
    EXPECT_EQ(decode_metadata(document).items.size(), most);
    document["metadata"][0].push_back(item);
    EXPECT_THAT([&] { decode_metadata(document); },
                ThrowsMessage<protocol_error>(HasSubstr("more than the 67108864 bytes")));
}

TEST(session, refuses_a_sweep_that_is_longer_than_its_frame)
{
    auto document = example_session().metadata;
    document["metadata"][0][0]["frame_data_length"] = 0;
    EXPECT_THAT([&] { decode_metadata(document); }, ThrowsMessage<protocol_error>(HasSubstr("multiple")));
}

TEST(session, splits_a_frame_into_items_and_sub_sweeps)
{
    const auto received = decode_frame(frame_message(2), example_metadata());
    ASSERT_EQ(received.items().size(), 3U);
    EXPECT_EQ(received.samples().size(), 95U);
    const auto &first = received.items()[0];
    EXPECT_EQ(first.samples.size(), 40U);
    EXPECT_EQ(first.samples[7], (sample{3000, 4000}));
    EXPECT_EQ(first.samples[27], (sample{3000, 4000}));
    EXPECT_EQ(first.samples[0], (sample{3, 2}));
    EXPECT_EQ(first.tick, 40000U);
    EXPECT_EQ(first.temperature, -3);
    EXPECT_EQ(first.data_valid, true);
    EXPECT_EQ(first.cca_value, 0.75);
    EXPECT_EQ(first.cca_detected, false);
    EXPECT_EQ(first.tx_enabled, true);
    const auto &second = received.items()[1];
    EXPECT_EQ(second.data_valid, std::nullopt);
    EXPECT_EQ(second.cca_value, std::nullopt);
    EXPECT_EQ(second.subsweep(0, 0).size(), 10U);
    EXPECT_EQ(second.subsweep(0, 0)[7], (sample{3000, 4000}));
    EXPECT_EQ(second.subsweep(0, 1).size(), 15U);
    EXPECT_EQ(second.subsweep(0, 1).data(), second.samples.data() + 10);
    EXPECT_EQ(first.subsweep(1, 0).data(), first.samples.data() + 20);
    EXPECT_THROW(static_cast<void>(first.subsweep(0, 1)), std::out_of_range);
}

TEST(session, keeps_a_frame_intact_when_it_is_moved)
{
    auto received = decode_frame(frame_message(1), example_metadata());
    const auto moved = std::move(received);
    EXPECT_EQ(moved.items()[2].samples[7], (sample{3000, 4000}));
    EXPECT_EQ(moved.items()[2].layout->frame_length, 30U);
    EXPECT_EQ(moved.items()[0].samples.data(), moved.samples().data());
}

/** Gives the first item of a frame a time. */
void set_time(message &received, const json &moment, const json &bound)
{
    received.header["result_info"][0][0]["utc_s"] = moment;
    received.header["result_info"][0][0]["utc_bound_s"] = bound;
}

TEST(session, refuses_frames_that_do_not_fit_the_metadata)
{
    const std::vector<std::pair<std::function<void(message &)>, const char *>> cases = {
        {[](message &m) { m.payload.pop_back(); }, "379 bytes"},
        {[](message &m) { m.payload.clear(); }, "0 bytes"},
        {[](message &m) { m.header["result_info"].erase(1); }, "groups"},
        {[](message &m) { m.header["result_info"][0].erase(1); }, "items in a group"},
        {[](message &m) { m.header["result_info"][0] = 1; }, "items in a group"},
        {[](message &m) { m.header["result_info"] = 1; }, "result_info"},
        {[](message &m) { m.header["result_info"][0][0].erase("tick"); }, "tick"},
        {[](message &m) { m.header["result_info"][0][0]["tick"] = 4294967296; }, "tick"},
        {[](message &m) { m.header["result_info"][0][0]["temperature"] = 40000; }, "temperature"},
        {[](message &m) { m.header["result_info"][0][0]["frame_delayed"] = 0; }, "frame_delayed"},
        {[](message &m) { m.header["result_info"][0][0]["cca_value"] = "high"; }, "cca_value"},
        {[](message &m) { m.header["missing"] = -1; }, "missing"},
        {[](message &m) { m.header["missing"] = 4294967296; }, "missing"},
        {[](message &m) { m.header["missing"] = 1.0; }, "missing"},
        {[](message &m) { m.header["missing"] = nullptr; }, "missing"},
        {[](message &m) { m.header["result_info"][0][0]["utc_s"] = 1.0; }, "no \"utc_bound_s\""},
        {[](message &m) { m.header["result_info"][0][0]["utc_bound_s"] = 1.0; }, "no \"utc_s\""},
        {[](message &m) { set_time(m, 4.6e9, 1.0); }, "\"utc_s\" is not a time"},
        {[](message &m) { set_time(m, -4.6e9, 1.0); }, "\"utc_s\" is not a time"},
        {[](message &m) { set_time(m, nullptr, 1.0); }, "\"utc_s\" is not a time"},
        {[](message &m) { set_time(m, "now", 1.0); }, "\"utc_s\" is not a number"},
        {[](message &m) { set_time(m, 1.0, -1e-6); }, "\"utc_bound_s\" is not a number from 0"},
        {[](message &m) { set_time(m, 1.0, 4.6e9); }, "\"utc_bound_s\" is not a number from 0"},
        {[](message &m) { set_time(m, 1.0, nullptr); }, "\"utc_bound_s\" is not a number from 0"},
    };
    for (const auto &[spoil, reason] : cases)
    {
        auto received = frame_message(0);
        spoil(received);
        EXPECT_THAT([&] { decode_frame(received, example_metadata()); },
                    ThrowsMessage<protocol_error>(HasSubstr(reason)));
    }
}

TEST(session, reads_the_times_that_it_writes)
{
    std::mt19937_64 random(5);
    // Until 2106 a number has digits enough for microseconds.
    std::uniform_int_distribution<int64_t> moments(-2'000'000'000'000'000, 4'290'000'000'000'000);
    std::uniform_int_distribution<int64_t> bounds(0, 3'600'000'000);
    auto sent = decode_frame(frame_message(0), example_metadata());
    EXPECT_FALSE(sent.items()[0].utc);
    for (int i = 0; i < 1000; ++i)
    {
        const utc_time utc{.moment = std::chrono::sys_time<std::chrono::microseconds>(
                               std::chrono::microseconds(moments(random))),
                           .bound = std::chrono::microseconds(bounds(random))};
        sent.set_utc(1, utc);
        message_parser parser;
        const auto bytes = encode_frame(sent);
        parser.feed(std::as_bytes(std::span(bytes)));
        const auto received = decode_frame(parser.next().value(), example_metadata());
        ASSERT_TRUE(received.items()[1].utc) << bytes;
        ASSERT_EQ(received.items()[1].utc->moment, utc.moment) << bytes;
        ASSERT_EQ(received.items()[1].utc->bound, utc.bound) << bytes;
        ASSERT_FALSE(received.items()[0].utc);
    }
}

TEST(session, decodes_the_description_of_a_server)
{
    const json identity = {
        {"server_version", "0.1.0"}, {"protocol_version", 1},       {"sensor", "k330"},
        {"sensor_count", 5},         {"connected_sensors", {1, 5}}, {"ticks_per_second", 1000000},
        {"max_baudrate", 921600}};
    const auto info = decode_server_info(identity);
    EXPECT_EQ(info.sensor, "k330");
    EXPECT_THAT(info.connected_sensors, ElementsAre(1, 5));
    EXPECT_EQ(info.max_baudrate, 921600U);
    auto absent = identity;
    absent["connected_sensors"] = {6};
    EXPECT_THROW(decode_server_info(absent), protocol_error);
}

TEST(session, accepts_a_clock_within_its_bounds_only)
{
    json identity = {{"server_version", "0.1.0"},
                     {"protocol_version", 1},
                     {"sensor", "k330"},
                     {"sensor_count", 0},
                     {"connected_sensors", json::array()},
                     {"max_baudrate", 0}};
    for (const double rate : {-1.0, 5e-324, 0.00099, 1.01e12, 1e300})
    {
        identity["ticks_per_second"] = rate;
        EXPECT_THAT(
            [&] { decode_server_info(identity); },
            ThrowsMessage<protocol_error>(HasSubstr("\"ticks_per_second\": " + json(rate).dump() +
                                                    "; it must be 0 (no clock) or from 0.001 to 1e12.")));
    }
    for (const double rate : {0.001, 1e12})
    {
        identity["ticks_per_second"] = rate;
        EXPECT_EQ(decode_server_info(identity).ticks_per_second, rate);
    }
}

TEST(session, accepts_a_server_without_clock)
{
    const auto info = decode_server_info({{"server_version", "0.1.0"},
                                          {"protocol_version", 1},
                                          {"sensor", "k330"},
                                          {"sensor_count", 0},
                                          {"connected_sensors", json::array()},
                                          {"ticks_per_second", 0},
                                          {"max_baudrate", 0}});
    EXPECT_EQ(info.ticks_per_second, 0.0);
}

TEST(decode_server_info, decodes_memory_and_stack_if_present)
{
    nlohmann::json document = {{"server_version", "1"},
                               {"protocol_version", 1},
                               {"sensor", "k330"},
                               {"sensor_count", 0},
                               {"ticks_per_second", 0},
                               {"max_baudrate", 0},
                               {"connected_sensors", nlohmann::json::array()}};
    EXPECT_FALSE(decode_server_info(document).memory);
    EXPECT_FALSE(decode_server_info(document).stack);
    document["memory"] = {{"size", 5}, {"live", 4}, {"peak", 3}, {"largest_free", 2}, {"failures", 1}};
    document["stack"] = {{"size", 7}, {"peak", 6}};
    const auto info = decode_server_info(document);
    EXPECT_EQ(info.memory->size, 5U);
    EXPECT_EQ(info.memory->live, 4U);
    EXPECT_EQ(info.memory->peak, 3U);
    EXPECT_EQ(info.memory->largest_free, 2U);
    EXPECT_EQ(info.memory->failures, 1U);
    EXPECT_EQ(info.stack->size, 7U);
    EXPECT_EQ(info.stack->peak, 6U);
    document["stack"].erase("peak");
    EXPECT_THROW(decode_server_info(document), protocol_error);
}

TEST(decode_server_info, decodes_the_description_of_the_board)
{
    auto document = test::identity();
    EXPECT_FALSE(decode_server_info(document).board);
    document["board"] = json::object();
    EXPECT_EQ(decode_server_info(document).board->name, std::nullopt);
    document["board"] = {
        {"name", "x1"},           {"id", "7"},  {"reset_cause", "watchdog"}, {"last_fault", ""},
        {"sensors", "simulated"}, {"colour", 3}};
    const auto info = decode_server_info(document);
    EXPECT_EQ(info.board->name, "x1");
    EXPECT_EQ(info.board->id, "7");
    EXPECT_EQ(info.board->reset_cause, "watchdog");
    EXPECT_EQ(info.board->last_fault, "");
    EXPECT_EQ(info.board->sensors, "simulated");
    document["board"]["id"] = 7;
    EXPECT_THROW(decode_server_info(document), protocol_error);
    document["board"] = "x1";
    EXPECT_THROW(decode_server_info(document), protocol_error);
}

TEST(session, accepts_null_for_missing_numbers)
{
    auto document = example_session().metadata;
    document["metadata"][0][0]["max_sweep_rate"] = nullptr;
    EXPECT_TRUE(std::isnan(decode_metadata(document).items[0].max_sweep_rate));
    auto received = frame_message(0);
    received.header["result_info"][0][0]["cca_value"] = nullptr;
    EXPECT_EQ(decode_frame(received, example_metadata()).items()[0].cca_value, std::nullopt);
}

} // namespace
} // namespace vantor
