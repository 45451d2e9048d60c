/** @file
 * `vantor scan`.
 */
#include "commands/scan.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <limits>
#include <memory>
#include <ostream>

#include "commands/common_options.h"
#include "commands/deadline_link.h"
#include "commands/interrupt.h"
#include "commands/server_description.h"
#include "recording/printable.h"
#include "vantor/client.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

constexpr const char *scan_footer = R"(Examples:
  vantor scan
      tries every serial device of this machine
  vantor scan /dev/ttyACM0 /dev/pts/4 --baudrate 921600

A device that does not answer within a second is skipped, with a message if you named it.)";

/** Time limits for a device: for each of two answers, and in total, whatever it sends. */
constexpr client_timeouts scan_timeouts{.connect = std::chrono::milliseconds(500),
                                        .answer = std::chrono::milliseconds(500)};
constexpr std::chrono::milliseconds scan_time{900};

/** Tries one device; returns an empty text, or the reason why no server was found. */
std::string scan_device(const serial_address &where, const link_opener &open,
                        const std::shared_ptr<event_loop> &loop, nlohmann::ordered_json &found)
{
    const auto deadline = loop->now() + scan_time;
    const auto open_link = [&] {
        return std::make_unique<deadline_link>(open(where), deadline, loop->clock());
    };
    try
    {
        const client server(open_link, scan_timeouts, loop);
        found.push_back(to_json(to_string(where), server.server()));
        return {};
    }
    catch (const connect_error &failure)
    {
        return failure.what();
    }
    catch (const bad_message &failure)
    {
        return where.device + ": " + failure.what();
    }
    catch (const protocol_error &failure)
    {
        return where.device + ": " + failure.what();
    }
    catch (const error &)
    {
        return where.device + " does not answer.";
    }
}

/** Prints one line per server. */
void print_servers(std::ostream &out, const nlohmann::ordered_json &found)
{
    for (const auto &server : found)
    {
        out << printable(server["address"].get<std::string>()) << "  vantor_server "
            << printable(server["server_version"].get<std::string>()) << ", "
            << printable(server["sensor"].get<std::string>())
            << ", connected: " << join(server["connected_sensors"].get<std::vector<unsigned>>());
        const auto name = server.value("/board/name"_json_pointer, std::string());
        out << (name.empty() ? "" : ", board: " + printable(name)) << "\n";
    }
}

} // namespace

std::vector<std::string> serial_devices()
{
    std::vector<std::string> devices;
    for (const auto &entry : std::filesystem::directory_iterator("/dev"))
    {
        const auto name = entry.path().filename().string();
        if (std::any_of(serial_device_prefixes.begin(), serial_device_prefixes.end(),
                        [&name](const char *prefix) { return name.starts_with(prefix); }))
        {
            devices.push_back(entry.path().string());
        }
    }
    std::sort(devices.begin(), devices.end());
    return devices;
}

exit_code scan(const scan_options &options, const command_streams &streams)
{
    const auto loop = std::make_shared<event_loop>();
    const interrupt_watch watch(*loop);
    const auto open = [&](const address &where) { return open_link(where, scan_timeouts.connect, loop); };
    return scan(options, streams, open, loop);
}

exit_code scan(const scan_options &options, const command_streams &streams, const link_opener &open,
               const std::shared_ptr<event_loop> &loop)
{
    const bool named = !options.devices.empty();
    const auto devices = named ? options.devices : options.list_devices();
    auto found = nlohmann::ordered_json::array();
    for (const auto &device : devices)
    {
        const auto reason = scan_device(
            {.device = device, .baudrate = static_cast<uint32_t>(options.baudrate)}, open, loop, found);
        if (named && !reason.empty())
        {
            streams.err << "vantor: " << printable(reason) << "\n";
        }
    }
    if (options.json)
    {
        print_json(streams.out, found);
    }
    else
    {
        print_servers(streams.out, found);
    }
    if (devices.empty())
    {
        streams.err << "vantor: this machine has no serial device; connect the board, or name a device\n";
    }
    else if (found.empty())
    {
        streams.err << "vantor: no serial device answers at " << options.baudrate
                    << " baud; check cables and power, or try another --baudrate\n";
    }
    return found.empty() ? exit_code::no_connection : exit_code::success;
}

command scan_command()
{
    auto options = std::make_shared<scan_options>();
    return {.name = "scan",
            .help = "Find servers on serial devices.",
            .footer = scan_footer,
            .options = {{.name = "DEVICE",
                         .help = "Serial devices to try; all of this machine if not given",
                         .value = &options->devices},
                        {.name = "--baudrate",
                         .help = "Baud rate, in bits per second",
                         .value = whole_number_value{.target = &options->baudrate,
                                                     .most = std::numeric_limits<uint32_t>::max()},
                         .value_name = "BAUD",
                         .default_value = std::to_string(options->baudrate)},
                        json_flag(options->json)},
            .run = [options](const command_streams &streams) { return scan(*options, streams); }};
}

} // namespace vantor
