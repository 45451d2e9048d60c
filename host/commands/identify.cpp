/** @file
 * `vantor identify` and `vantor scan`.
 */
#include "commands/identify.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <limits>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "commands/common_options.h"
#include "commands/text_table.h"
#include "vantor/client.h"
#include "vantor/errors.h"
#include "vantor/link.h"

namespace vantor
{
namespace
{

constexpr const char *identify_footer = R"(Examples:
  vantor identify
      the simulated server
  vantor identify --connect serial:/dev/ttyACM0@115200
  vantor identify --connect tcp:192.168.1.20:6110 --json)";

constexpr const char *scan_footer = R"(Examples:
  vantor scan
      every serial device of this machine
  vantor scan /dev/ttyACM0 /dev/pts/4 --baudrate 921600

A device that does not answer within a second is passed over; of devices that were named it is said.)";

/** How long a device that is scanned is waited for: for each of two answers, and whatever it sends, in all.
 */
constexpr client_timeouts scan_timeouts{.connect = std::chrono::milliseconds(500),
                                        .answer = std::chrono::milliseconds(500)};
constexpr std::chrono::milliseconds scan_time{900};

/** Joins sensor numbers: "1, 2". */
std::string join(const std::vector<unsigned> &numbers)
{
    std::string text;
    for (const auto number : numbers)
    {
        text += (text.empty() ? "" : ", ") + std::to_string(number);
    }
    return text.empty() ? "none" : text;
}

/** What a server says of itself, as JSON. */
nlohmann::ordered_json to_json(const std::string &where, const server_info &info)
{
    nlohmann::ordered_json document = {{"address", where},
                                       {"server_version", info.server_version},
                                       {"protocol_version", info.protocol_version},
                                       {"sensor", info.sensor},
                                       {"sensor_count", info.sensor_count},
                                       {"connected_sensors", info.connected_sensors},
                                       {"ticks_per_second", info.ticks_per_second},
                                       {"max_baudrate", info.max_baudrate}};
    if (info.memory)
    {
        document["memory"] = {{"size", info.memory->size},
                              {"live", info.memory->live},
                              {"peak", info.memory->peak},
                              {"largest_free", info.memory->largest_free},
                              {"failures", info.memory->failures}};
    }
    if (info.stack)
    {
        document["stack"] = {{"size", info.stack->size}, {"peak", info.stack->peak}};
    }
    return document;
}

/** Prints how much of its memory and stack a server uses, as far as it tells. */
void print_memory(const server_info &info, std::ostream &out)
{
    if (info.memory)
    {
        out << "memory     " << info.memory->size << " bytes, " << info.memory->live << " in use, at most "
            << info.memory->peak << " so far; " << info.memory->failures << " requests failed\n";
    }
    if (info.stack)
    {
        out << "stack      " << info.stack->size << " bytes, at most " << info.stack->peak
            << " in use so far\n";
    }
}

/** Prints what a server is. */
exit_code identify(const std::string &where, bool json, std::ostream &out)
{
    const client server(parse_address(where));
    const auto &info = server.server();
    if (json)
    {
        print_json(out, to_json(where, info));
        return exit_code::success;
    }
    out << "server     vantor_server " << printable(info.server_version) << ", protocol "
        << info.protocol_version << "\n"
        << "sensors    " << printable(info.sensor) << ", " << info.sensor_count
        << (info.sensor_count == 1 ? " place" : " places") << ", connected: " << join(info.connected_sensors)
        << "\n"
        << "clock      "
        << (info.ticks_per_second > 0.0 ? fixed(info.ticks_per_second, 0) + " ticks per second" : "none")
        << "\n";
    if (info.max_baudrate > 0)
    {
        out << "link       at most " << info.max_baudrate << " baud\n";
    }
    print_memory(info, out);
    return exit_code::success;
}

/** The serial devices of this machine. */
std::vector<std::string> serial_devices()
{
    std::vector<std::string> devices;
    for (const auto &entry : std::filesystem::directory_iterator("/dev"))
    {
        const auto name = entry.path().filename().string();
        if (name.starts_with("ttyACM") || name.starts_with("ttyS") || name.starts_with("ttyUSB") ||
            name.starts_with("ttyAMA"))
        {
            devices.push_back(entry.path().string());
        }
    }
    std::sort(devices.begin(), devices.end());
    return devices;
}

/** A link that counts as broken after the time for a scan, for devices that send on and on. */
class scanning_link : public link
{
public:
    explicit scanning_link(const address &where) : connection_(open_link(where, scan_timeouts.connect))
    {
    }

    std::size_t read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout) override
    {
        return connection_->read_some(buffer, bound(timeout));
    }

    void write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout) override
    {
        connection_->write(bytes, bound(timeout));
    }

    std::uint32_t set_baudrate(std::uint32_t baudrate) override
    {
        return connection_->set_baudrate(baudrate);
    }

private:
    using steady = std::chrono::steady_clock;

    /** The time that is left of what an operation may take. */
    std::chrono::milliseconds bound(std::chrono::milliseconds timeout) const
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - steady::now());
        if (left.count() <= 0)
        {
            throw connection_lost("The time for the scan is over.");
        }
        return std::min(left, timeout);
    }

    steady::time_point deadline_ = steady::now() + scan_time;
    std::unique_ptr<link> connection_;
};

/** What is to be scanned. */
struct scan_options
{
    std::vector<std::string> devices;
    std::uint64_t baudrate = 115200;
    bool json = false;
};

/** Asks one device; returns why there is no server, or nothing. */
std::string scan_device(const address &where, const std::string &device, nlohmann::ordered_json &found)
{
    try
    {
        const client server([&] { return std::make_unique<scanning_link>(where); }, scan_timeouts);
        found.push_back(to_json(to_string(where), server.server()));
        return {};
    }
    catch (const connect_error &failure)
    {
        return failure.what();
    }
    catch (const error &)
    {
        return device + " does not answer.";
    }
}

/** Asks each device and prints those that answer; of devices that were named it says why others do not. */
exit_code scan(const scan_options &options, const command_streams &streams)
{
    const bool named = !options.devices.empty();
    auto found = nlohmann::ordered_json::array();
    for (const auto &device : named ? options.devices : serial_devices())
    {
        const serial_address where{.device = device,
                                   .baudrate = static_cast<std::uint32_t>(options.baudrate)};
        const auto reason = scan_device(address{where}, device, found);
        if (named && !reason.empty())
        {
            streams.err << "vantor: " << reason << "\n";
        }
    }
    if (options.json)
    {
        print_json(streams.out, found);
    }
    for (const auto &server : options.json ? nlohmann::ordered_json::array() : found)
    {
        streams.out << server["address"].get<std::string>() << "  vantor_server "
                    << printable(server["server_version"].get<std::string>()) << ", "
                    << printable(server["sensor"].get<std::string>())
                    << ", connected: " << join(server["connected_sensors"].get<std::vector<unsigned>>())
                    << "\n";
    }
    if (found.empty())
    {
        streams.err << "vantor: no serial device answers at " << options.baudrate
                    << " baud; check cables and power, or try another --baudrate\n";
    }
    return found.empty() ? exit_code::no_connection : exit_code::success;
}

} // namespace

command identify_command()
{
    struct identify_options
    {
        std::string connect = "sim:";
        bool json = false;
    };
    auto options = std::make_shared<identify_options>();
    return {.name = "identify",
            .help = "Ask a server what it is and which sensors it has.",
            .footer = identify_footer,
            .options = {connect_option(options->connect), json_flag(options->json)},
            .run = [options](const command_streams &streams) {
                return identify(options->connect, options->json, streams.out);
            }};
}

command scan_command()
{
    auto options = std::make_shared<scan_options>();
    return {.name = "scan",
            .help = "Find servers on serial devices.",
            .footer = scan_footer,
            .options = {{.name = "DEVICE",
                         .help = "Devices to ask; all serial devices when none is given",
                         .value = &options->devices},
                        {.name = "--baudrate",
                         .help = "Speed of the lines, in bits per second",
                         .value = whole_number_value{.target = &options->baudrate,
                                                     .most = std::numeric_limits<std::uint32_t>::max()},
                         .value_name = "BAUD",
                         .default_value = std::to_string(options->baudrate)},
                        json_flag(options->json)},
            .run = [options](const command_streams &streams) { return scan(*options, streams); }};
}

} // namespace vantor
