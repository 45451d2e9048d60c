/** @file
 * `vantor bridge`.
 */
#include "commands/bridge.h"

#include <array>
#include <climits>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <utility>

#include <unistd.h>

#include "bridge/batch.h"
#include "bridge/bridge.h"
#include "bridge/broker_address.h"
#include "bridge/metrics.h"
#include "bridge/mqtt_broker.h"
#include "bridge/nats_broker.h"
#include "commands/broker_options.h"
#include "commands/common_options.h"
#include "commands/interrupt.h"
#include "commands/server_links.h"
#include "commands/usage_error.h"
#include "commands/validation.h"
#include "recording/printable.h"
#include "vantor/configuration.h"

namespace vantor
{
namespace
{

constexpr const char *bridge_footer = R"(Examples:
  vantor bridge nats:broker.local --site hall examples/two_sensors.json --connect tcp:192.168.1.20:6110
  vantor bridge nats:broker.local --site hall config.json --connect door=tcp:10.0.0.5:6110 --connect gate=tcp:10.0.0.6:6110
  vantor bridge nats:broker.local --site hall config.json --boards boards.txt --metrics 9464
      with one address, or NAME=ADDRESS, in each line of boards.txt
  vantor bridge mqtt:broker.local --site hall config.json --boards boards.txt --credentials user.txt --tls-ca ca.pem
      to an MQTT 5 broker, with the name of the user and the password in the two lines of user.txt

Each board measures until Ctrl-C; one that fails is connected again. A board is called NAME, or else what its server
reports as its id. Batches that the broker does not have yet wait in the spool, also until the next start.
docs/fleet.md describes batches, states and figures.)";

/** Upper limits of options. */
constexpr uint64_t most_kilobytes = 1000;
constexpr uint64_t most_milliseconds = 60'000;
constexpr uint64_t most_spool_megabytes = 1U << 20U;
constexpr uint64_t most_hours = 100'000;
constexpr uint64_t most_replicas = 5;

/** The options of `vantor bridge`. */
struct bridge_options
{
    std::string broker;
    std::filesystem::path configuration;
    std::string site;
    std::string bridge_name;
    std::vector<std::string> connect;
    std::filesystem::path boards;
    std::filesystem::path spool;
    uint64_t spool_megabytes = 256;
    uint64_t batch_kilobytes = 256;
    uint64_t batch_milliseconds = 100;
    uint64_t keep_hours = 0; /**< 0 if not given */
    uint64_t replicas = 0;   /**< 0 if not given */
    broker_security security;
    std::string metrics;
    bool recalibrate = false;
    bool no_validate = false;
};

/** A text without blanks around it. */
std::string trimmed(std::string text)
{
    text.erase(0, text.find_first_not_of(" \t"));
    text.erase(text.find_last_not_of(" \t\r") + 1);
    return text;
}

/** Splits "NAME=ADDRESS"; the name is empty if there is none. */
std::pair<std::string, std::string> split_name(const std::string &text)
{
    const auto equals = text.find('=');
    const bool named = equals != std::string::npos && text.find(':') > equals;
    if (!named)
    {
        return {"", text};
    }
    auto name = trimmed(text.substr(0, equals));
    if (!is_batch_name(name))
    {
        throw usage_error("\"" + name +
                          "\" cannot be the name of a board: use 1 to 64 letters, digits, \"-\" and \"_\"");
    }
    return {std::move(name), trimmed(text.substr(equals + 1))};
}

/** Throws unless a line of a file is a board. @param place  of the line */
void require_board(const std::string &line, const std::string &place)
{
    try
    {
        (void)parse_address(split_name(line).second);
    }
    catch (const error &fault)
    {
        throw usage_error(place + ": " + fault.what());
    }
}

/** Adds the addresses in a file, one in each line; empty lines and those that begin with "#" are left out. */
void add_lines(std::vector<std::string> &addresses, const std::filesystem::path &file)
{
    std::ifstream input(file);
    if (!input)
    {
        throw usage_error("Cannot read " + file.string() + ", the file of --boards");
    }
    int number = 0;
    for (std::string line; std::getline(input, line);)
    {
        ++number;
        line = trimmed(line);
        if (!line.empty() && line.front() != '#')
        {
            require_board(line, file.string() + ":" + std::to_string(number));
            addresses.push_back(line);
        }
    }
}

/** The boards of the options. */
std::vector<bridged_board> bridged_boards(const bridge_options &options, const nlohmann::json &configuration,
                                          const std::shared_ptr<event_loop> &loop,
                                          const command_streams &streams)
{
    auto addresses = options.connect;
    if (!options.boards.empty())
    {
        add_lines(addresses, options.boards);
    }
    if (addresses.empty())
    {
        throw usage_error("No board is given: use --connect ADDRESS, or --boards FILE");
    }
    std::set<std::string> seen;
    std::vector<bridged_board> boards;
    for (const auto &text : addresses)
    {
        auto [name, address] = split_name(text);
        const auto where = parse_address(address);
        const bool is_new =
            (name.empty() || seen.insert(name + "=").second) &&
            (std::holds_alternative<simulator_address>(where) || seen.insert(to_string(where)).second);
        if (!is_new)
        {
            throw usage_error("The board " + text + " is given twice");
        }
        boards.push_back({.name = std::move(name),
                          .address = address,
                          .open_links = links_to(where, loop, streams),
                          .configuration = configuration});
    }
    return boards;
}

/** Reads and checks the configuration. */
nlohmann::json read_valid_configuration(const bridge_options &options, const command_streams &streams)
{
    auto configuration = load_configuration(options.configuration);
    if (!options.no_validate)
    {
        require_valid(configuration, options.configuration, streams.err, no_validate_advice);
    }
    return configuration;
}

/** The directory of the spool. */
std::filesystem::path spool_directory(const bridge_options &options)
{
    return options.spool.empty() ? std::filesystem::path("spools") / options.site : options.spool;
}

/** The name of the computer. */
std::string computer_name()
{
    std::array<char, HOST_NAME_MAX + 1> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? to_batch_name(name.data()) : "bridge";
}

/** The name of the bridge. */
std::string bridge_name(const bridge_options &options)
{
    return options.bridge_name.empty() ? computer_name() : options.bridge_name;
}

/** Connects to the broker. */
std::unique_ptr<broker> make_broker(const bridge_options &options, event_loop &loop)
{
    const auto where = parse_broker_address(options.broker);
    if (where.kind == broker_kind::mqtt)
    {
        const mqtt_broker::identity names{.site = options.site, .bridge = bridge_name(options)};
        return std::make_unique<mqtt_broker>(where, names, options.security, loop);
    }
    nats_storage storage;
    storage.keep = options.keep_hours > 0 ? std::chrono::hours(options.keep_hours) : storage.keep;
    storage.replicas = options.replicas > 0 ? static_cast<int64_t>(options.replicas) : storage.replicas;
    return std::make_unique<nats_broker>(where, options.site, storage, options.security, loop);
}

/** What is left at the end. */
void print_end(const bridge_report &report, std::ostream &out)
{
    uint64_t frames = 0;
    uint64_t lost = 0;
    uint64_t dropped = 0;
    for (const auto &board : report.boards)
    {
        frames += board.frames;
        lost += board.lost;
        dropped += board.dropped;
    }
    out << "stopped; frames: " << frames << ", lost: " << lost << ", dropped: " << dropped
        << ", batches stored: " << report.published.stored << "\n";
    if (report.published.too_large > 0)
    {
        out << report.published.too_large << " batches were too large for the broker, and are lost\n";
    }
    for (const auto &board : report.boards)
    {
        if (board.lost + board.dropped > 0)
        {
            out << board.board << ": lost: " << board.lost << ", dropped: " << board.dropped << "\n";
        }
    }
    if (report.waiting > 0)
    {
        out << report.waiting << " batches wait in the spool for the next start\n";
    }
}

/** Checks the name of the bridge: names of topics of boards would be ambiguous. */
void require_bridge_name(const std::string &name)
{
    if (!name.empty() && (!is_batch_name(name) || name == "frames" || name == "state"))
    {
        throw usage_error("--bridge-name must be 1 to 64 letters, digits, \"-\" and \"_\", and neither "
                          "\"frames\" nor \"state\"");
    }
}

/** Checks options that depend on each other. */
void require_complete(const bridge_options &options)
{
    if (!is_batch_name(options.site))
    {
        throw usage_error("--site must be 1 to 64 letters, digits, \"-\" and \"_\", not \"" + options.site +
                          "\"");
    }
    require_bridge_name(options.bridge_name);
    // Before the spool takes its place on the disk.
    const auto where = parse_broker_address(options.broker);
    if (where.kind == broker_kind::mqtt && (options.keep_hours > 0 || options.replicas > 0))
    {
        throw usage_error("--keep and --replicas are for NATS: an MQTT broker does not keep batches");
    }
    require_complete(options.security);
}

/** Passes frames on until a signal asks to stop. */
exit_code run_bridge(const bridge_options &options, const command_streams &streams)
{
    require_complete(options);
    const auto loop = std::make_shared<event_loop>();
    const interrupt_watch watch(*loop);
    auto boards = bridged_boards(options, read_valid_configuration(options, streams), loop, streams);
    const auto count = boards.size();
    spool store(spool_directory(options), {.file = options.spool_megabytes << 20U});
    const auto target = make_broker(options, *loop);
    std::optional<metrics_server> metrics;
    if (!options.metrics.empty())
    {
        metrics.emplace(options.metrics, options.site);
        streams.out << "metrics on port " << metrics->port() << "\n";
    }
    bridge passing({.site = options.site,
                    .name = bridge_name(options),
                    .limits = {.bytes = options.batch_kilobytes << 10U,
                               .time = std::chrono::milliseconds(options.batch_milliseconds)},
                    .recalibrate = options.recalibrate},
                   std::move(boards), store, *target, loop);
    streams.out << "bridging " << count << (count == 1 ? " board" : " boards") << " of " << options.site
                << " to " << options.broker << "\n"
                << std::flush;
    passing.run({.stop = [] { return interrupt_watch::interrupted(); },
                 .line =
                     [&streams](const std::string &line) {
                         streams.err << printable(line) << "\n" << std::flush;
                     },
                 .report =
                     [&metrics](const bridge_report &report) {
                         if (metrics)
                         {
                             metrics->update(report);
                         }
                     }});
    print_end(passing.report(), streams.out);
    return exit_code::success;
}

} // namespace

command bridge_command()
{
    auto options = std::make_shared<bridge_options>();
    std::vector<command_option> list = {
        {.name = "BROKER",
         .help = "Where frames go: nats:HOST[:PORT] or mqtt:HOST[:PORT]",
         .value = &options->broker,
         .required = true},
        configuration_argument(options->configuration),
        {.name = "--site",
         .help = "Name of the place of the boards",
         .value = &options->site,
         .value_name = "NAME",
         .required = true},
        {.name = "--bridge-name",
         .help = "Name of this bridge, which no other of the site has; that of the computer if not given",
         .value = &options->bridge_name,
         .value_name = "NAME"},
        {.name = "--connect",
         .help = "Address of a board; repeat it for several",
         .value = &options->connect,
         .value_name = "[NAME=]ADDRESS"},
        {.name = "--boards",
         .help = "File with a board in each line, as for --connect",
         .value = &options->boards,
         .value_name = "FILE"},
        {.name = "--spool",
         .help = "Directory for batches that the broker does not have yet; spools/SITE if not given",
         .value = &options->spool,
         .value_name = "DIR"},
        {.name = "--spool-size",
         .help = "Megabytes of the spool, which are reserved at once",
         .value = whole_number_value{.target = &options->spool_megabytes,
                                     .least = 8,
                                     .most = most_spool_megabytes},
         .value_name = "NUMBER",
         .default_value = "256"},
        {.name = "--batch-size",
         .help = "Most kilobytes of a batch",
         .value = whole_number_value{.target = &options->batch_kilobytes, .most = most_kilobytes},
         .value_name = "NUMBER",
         .default_value = "256"},
        {.name = "--batch-time",
         .help = "Most milliseconds from the first frame of a batch to its end",
         .value = whole_number_value{.target = &options->batch_milliseconds, .most = most_milliseconds},
         .value_name = "NUMBER",
         .default_value = "100"},
        {.name = "--keep",
         .help = "Hours for which NATS keeps batches, if it does not have the stream yet; 24 if not given",
         .value = whole_number_value{.target = &options->keep_hours, .most = most_hours},
         .value_name = "HOURS"},
        {.name = "--replicas",
         .help = "Servers of a NATS cluster that keep each batch, if it does not have the stream yet; 1 if "
                 "not given",
         .value = whole_number_value{.target = &options->replicas, .most = most_replicas},
         .value_name = "NUMBER"}};
    for (auto &option : security_options(options->security))
    {
        list.push_back(std::move(option));
    }
    list.push_back({.name = "--metrics",
                    .help = "Serve figures for Prometheus on this port",
                    .value = &options->metrics,
                    .value_name = "[HOST:]PORT"});
    list.push_back({.name = "--recalibrate",
                    .help = "Calibrate again when a sensor asks for it",
                    .value = &options->recalibrate});
    list.push_back(no_validate_flag(options->no_validate));
    return {.name = "bridge",
            .help = "Pass the frames of many boards to a message broker.",
            .footer = bridge_footer,
            .options = std::move(list),
            .run = [options](const command_streams &streams) { return run_bridge(*options, streams); }};
}

} // namespace vantor
