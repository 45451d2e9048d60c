/** @file
 * `vantor fleet`.
 */
#include "commands/fleet.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <ostream>

#include <nlohmann/json.hpp>

#include "bridge/batch.h"
#include "bridge/fleet.h"
#include "commands/broker_options.h"
#include "commands/common_options.h"
#include "commands/text_table.h"
#include "commands/usage_error.h"
#include "configuration/optional_members.h"
#include "recording/printable.h"

namespace vantor
{
namespace
{

constexpr const char *fleet_footer = R"(Examples:
  vantor fleet nats:broker.local
  vantor fleet nats:broker.local --site hall --json

A board is "online" while it measures, "offline" while its bridge cannot measure with it, and "silent" if its bridge has
not reported for three intervals. Counts begin when the bridge starts. LOST are frames that were lost before they reached
the bridge, DROPPED those that it dropped because its spool was full, WAITING the batches that the broker does not have
yet.)";

/** The options of `vantor fleet`. */
struct fleet_options
{
    std::string broker;
    std::string site;
    broker_security security;
    bool json = false;
};

/** Seconds since 1970-01-01 UTC. */
double utc_now()
{
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

/** What a board does, in a word. */
std::string word_for(const decoded_state &one, double now)
{
    // A bridge that is late has not gone.
    constexpr double most_intervals = 3.0;
    if (now - one.utc_s > most_intervals * one.interval_s)
    {
        return "silent";
    }
    return one.state.online ? "online" : "offline";
}

/** A number with one digit behind the point. */
std::string rounded(double value)
{
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), "%.1f", value); // NOLINT(cppcoreguidelines-pro-type-vararg)
    return text.data();
}

/** How long ago a state was reported. */
std::string age(const decoded_state &one, double now)
{
    const auto seconds = std::llround(std::clamp(now - one.utc_s, 0.0, 1e15));
    constexpr long long hour = 3600;
    return seconds < 2 * hour ? std::to_string(seconds) + " s" : std::to_string(seconds / hour) + " h";
}

/** Describes the boards as JSON. */
nlohmann::ordered_json to_json(const fleet &found, double now)
{
    auto list = nlohmann::ordered_json::array();
    for (const auto &one : found.boards)
    {
        const auto &state = one.state;
        nlohmann::ordered_json entry = {{"site", one.site},
                                        {"board", state.board},
                                        {"state", word_for(one, now)},
                                        {"age_s", now - one.utc_s},
                                        {"bridge", one.bridge},
                                        {"address", state.address},
                                        {"sessions", state.sessions},
                                        {"frames", state.frames},
                                        {"rate", state.rate},
                                        {"lost", state.lost},
                                        {"dropped", state.dropped},
                                        {"waiting", state.waiting},
                                        {"calibration_needed", state.calibration_needed}};
        set_if_known(entry, "temperature", state.temperature);
        if (state.server)
        {
            entry["server_version"] = state.server->server_version;
        }
        if (!state.fault.empty())
        {
            entry["fault"] = state.fault;
        }
        list.push_back(std::move(entry));
    }
    return {{"boards", std::move(list)}, {"unreadable", found.unreadable}};
}

/** Prints the boards as a table, and why some are offline. */
void print(const fleet &found, double now, std::ostream &out)
{
    text_table table({"SITE", "BOARD", "STATE", "AGE", "FRAMES", "RATE", "LOST", "DROPPED", "WAITING", "TEMP",
                      "CAL", "VERSION", "BRIDGE", "ADDRESS"});
    for (const auto &one : found.boards)
    {
        const auto &state = one.state;
        table.add({printable(one.site), printable(state.board), word_for(one, now), age(one, now),
                   std::to_string(state.frames), rounded(state.rate), std::to_string(state.lost),
                   std::to_string(state.dropped), std::to_string(state.waiting),
                   state.temperature ? std::to_string(*state.temperature) : "-",
                   state.calibration_needed ? "needed" : "-",
                   state.server ? printable(state.server->server_version) : "-", printable(one.bridge),
                   printable(state.address)});
    }
    table.print(out);
    for (const auto &one : found.boards)
    {
        if (!one.state.fault.empty())
        {
            out << printable(one.state.board) << ": " << printable(one.state.fault) << "\n";
        }
    }
}

/** Prints the boards that a broker knows. */
exit_code list_fleet(const fleet_options &options, const command_streams &streams)
{
    require_complete(options.security);
    const auto where = parse_broker_address(options.broker);
    if (where.kind != broker_kind::nats)
    {
        throw usage_error("Boards behind an MQTT broker cannot be listed, only those behind a NATS server: "
                          "subscribe to vantor/+/+/state with a program of your own");
    }
    if (!options.site.empty() && !is_batch_name(options.site))
    {
        throw usage_error("--site is not the name of a site");
    }
    const auto found = read_fleet(where, options.site, options.security);
    const auto now = utc_now();
    if (options.json)
    {
        print_json(streams.out, to_json(found, now));
    }
    else if (found.boards.empty())
    {
        streams.out << "no boards; \"vantor bridge\" adds some\n";
    }
    else
    {
        print(found, now, streams.out);
    }
    if (found.unreadable > 0)
    {
        streams.err << "States that cannot be read: " << found.unreadable << "\n";
    }
    return exit_code::success;
}

} // namespace

command fleet_command()
{
    auto options = std::make_shared<fleet_options>();
    std::vector<command_option> list = {{.name = "BROKER",
                                         .help = "Address of the broker: nats:HOST[:PORT]",
                                         .value = &options->broker,
                                         .required = true},
                                        {.name = "--site",
                                         .help = "Only the boards of this site",
                                         .value = &options->site,
                                         .value_name = "NAME"}};
    for (auto &option : security_options(options->security))
    {
        list.push_back(std::move(option));
    }
    list.push_back(json_flag(options->json));
    return {.name = "fleet",
            .help = "List the boards that bridges pass to a message broker.",
            .footer = fleet_footer,
            .options = std::move(list),
            .run = [options](const command_streams &streams) { return list_fleet(*options, streams); }};
}

} // namespace vantor
