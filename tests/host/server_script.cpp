/** @file
 * The behaviour of a scripted server.
 */
#include "server_script.h"

#include <numeric>
#include <stdexcept>
#include <utility>

namespace vantor::test
{
namespace
{

using nlohmann::json;

/** Metadata of an item with contiguous sub-sweeps. */
json item_metadata(int frame_length, const std::vector<int> &subsweeps)
{
    json offsets = json::array();
    int sweep_length = 0;
    for (const int length : subsweeps)
    {
        offsets.push_back(sweep_length);
        sweep_length += length;
    }
    return {{"calibration_temperature", 24},     {"frame_data_length", frame_length},
            {"sweep_data_length", sweep_length}, {"max_sweep_rate", 3125.5},
            {"high_speed_mode", true},           {"base_step_length_m", 0.0025},
            {"subsweep_data_offset", offsets},   {"subsweep_data_length", subsweeps}};
}

/** The description of an item in a frame header. */
json item_result(uint32_t tick)
{
    return {{"tick", tick},
            {"data_saturated", false},
            {"temperature", -3},
            {"calibration_needed", false},
            {"frame_delayed", false}};
}

/** The answer to a command without further members. */
json plain_answer(const json &command)
{
    return {{"status", "ok"}, {"command", command["command"]}, {"payload_size", 0}};
}

/** Metadata of a configured item, with one sweep in each frame. */
json metadata_of_item(const json &item)
{
    constexpr int default_points = 160;
    const auto given = item.is_object() ? item.value("config", json()) : json();
    const auto config = given.is_object() ? given : json::object();
    std::vector<int> lengths;
    for (const auto &subsweep : config.value("subsweeps", json::array({config})))
    {
        lengths.push_back(subsweep.value("num_points", default_points));
    }
    return item_metadata(std::accumulate(lengths.begin(), lengths.end(), 0), lengths);
}

} // namespace

void host_connection::send(const json &header, const std::string &payload)
{
    send(header.dump() + "\n" + payload);
}

json identity()
{
    return {{"status", "ok"},
            {"command", "identify"},
            {"payload_size", 0},
            {"server_version", "0.1.0"},
            {"protocol_version", 1},
            {"sensor", "k330"},
            {"sensor_count", 5},
            {"connected_sensors", {1, 2}},
            {"ticks_per_second", 1000000},
            {"max_baudrate", 0}};
}

json fake_session::frame_header(uint32_t number) const
{
    const uint32_t tick = number * 20000U;
    auto first = item_result(tick);
    first.update({{"data_valid", true}, {"cca_value", 0.75}, {"cca_detected", false}, {"tx_enabled", true}});
    json groups =
        json::array({json::array({first, item_result(tick + 5)}), json::array({item_result(tick + 9)})});
    return {{"result_info", groups}, {"status", "ok"}, {"payload_size", frame_payload(number).size()}};
}

std::string fake_session::frame_payload(uint32_t number) const
{
    std::string bytes;
    for (const auto &group : metadata["metadata"])
    {
        for (const auto &item : group)
        {
            const int frame_length = item["frame_data_length"];
            const int sweep_length = item["sweep_data_length"];
            for (int i = 0; i < frame_length; ++i)
            {
                const bool strong = i % sweep_length == 7;
                const auto real = static_cast<uint16_t>(strong ? 3000 : 3);
                const auto imag = static_cast<uint16_t>(strong ? 4000 : number % 5);
                for (const auto part : {real, imag})
                {
                    bytes += static_cast<char>(part & 0xFFU);
                    bytes += static_cast<char>(part >> 8U);
                }
            }
        }
    }
    return bytes;
}

fake_session example_session()
{
    const json config = {
        {"sweeps_per_frame", 2}, {"start_point", 100}, {"step_length", 4}, {"num_points", 20}};
    const json first = {{"sensor_id", 1}, {"config", config}, {"cca_enable", true}, {"cca_debug", true}};
    const json near = {{"start_point", 60}, {"step_length", 2}, {"num_points", 10}};
    const json far = {{"start_point", 200}, {"step_length", 8}, {"num_points", 15}};
    const json second = {{"sensor_id", 2}, {"config", {{"subsweeps", {near, far}}}}};
    const json third = {{"sensor_id", 2}, {"config", {{"start_point", -41}, {"num_points", 30}}}};
    fake_session session;
    session.configuration = {{"max_update_rate", 50},
                             {"groups", json::array({json::array({first, second}), json::array({third})})}};
    session.metadata = {
        {"status", "ok"},
        {"tick_period", 20000},
        {"payload_size", 0},
        {"calibration_info", {{{"sensor_id", 1}, {"temperature", 24}, {"data", std::string(480, 'a')}}}},
        {"metadata", json::array({json::array({item_metadata(40, {20}), item_metadata(25, {10, 15})}),
                                  json::array({item_metadata(30, {30})})})}};
    return session;
}

json metadata_for(const json &configuration)
{
    auto metadata = example_session().metadata;
    auto groups = json::array();
    size_t count = 0;
    for (const auto &group : configuration.value("groups", json::array()))
    {
        auto &described = groups.emplace_back(json::array());
        for (const auto &item : group)
        {
            described.push_back(metadata_of_item(item));
        }
        count += group.size();
    }
    if (count != 3)
    {
        metadata["metadata"] = groups;
    }
    return metadata;
}

void describe_configuration(host_connection &host, const json &command)
{
    host.send(metadata_for(command["configuration"]), "");
}

json last_command(const std::vector<std::string> &lines, const std::string &name)
{
    json found;
    for (const auto &line : lines)
    {
        auto command = json::parse(line);
        if (command["command"] == name)
        {
            found = std::move(command);
        }
    }
    if (found.is_null())
    {
        throw std::runtime_error("The server received no \"" + name + "\".");
    }
    return found;
}

reaction stream_frames(uint32_t count, uint32_t first)
{
    return [=](host_connection &host, const json &command) {
        host.send(plain_answer(command), "");
        const auto session = example_session();
        for (uint32_t number = first; number < first + count; ++number)
        {
            host.send(session.frame_header(number), session.frame_payload(number));
        }
    };
}

void server_script::on(const std::string &command, reaction what)
{
    const std::scoped_lock lock(mutex_);
    reactions_[command] = std::move(what);
}

std::vector<std::string> server_script::lines() const
{
    const std::scoped_lock lock(mutex_);
    return lines_;
}

/** The reaction that a test has set for a command; empty if none. */
reaction server_script::find(const std::string &command) const
{
    const std::scoped_lock lock(mutex_);
    const auto found = reactions_.find(command);
    return found == reactions_.end() ? reaction() : found->second;
}

void server_script::react(host_connection &host, const std::string &line)
{
    if (line.empty())
    {
        return;
    }
    {
        const std::scoped_lock lock(mutex_);
        lines_.push_back(line);
    }
    const auto command = json::parse(line, nullptr, false);
    if (!command.is_object() || !command.contains("command") || !command["command"].is_string())
    {
        host.send({{"status", "error"},
                   {"code", command.is_discarded() ? "bad_json" : "bad_command"},
                   {"message", "…"},
                   {"payload_size", 0}},
                  "");
        return;
    }
    const auto name = command["command"].get<std::string>();
    const auto special = find(name);
    if (special)
    {
        special(host, command);
    }
    else if (name == "identify")
    {
        host.send(identity(), "");
    }
    else if (name == "configure")
    {
        host.send(example_session().metadata, "");
    }
    else if (name == "frame")
    {
        host.send(example_session().frame_header(0), example_session().frame_payload(0));
    }
    else
    {
        host.send(plain_answer(command), "");
    }
}

} // namespace vantor::test
