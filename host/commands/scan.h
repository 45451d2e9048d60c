/** @file
 * `vantor scan`: finds servers on the serial devices of this machine.
 */
#ifndef VANTOR_SCAN_H
#define VANTOR_SCAN_H

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands/command.h"
#include "vantor/event_loop.h"
#include "vantor/link.h"

namespace vantor
{

/** How the names of serial devices in /dev begin. */
inline constexpr std::array serial_device_prefixes{"ttyACM", "ttyAMA", "ttyS", "ttyUSB"};

/** The serial devices of this machine, sorted. */
std::vector<std::string> serial_devices();

/** The options of `vantor scan`. */
struct scan_options
{
    std::vector<std::string> devices; /**< empty for all serial devices of this machine */
    std::function<std::vector<std::string>()> list_devices = serial_devices; /**< finds all of them */
    uint64_t baudrate = 115200;
    bool json = false;
};

/** Opens the link to a device. */
using link_opener = std::function<std::unique_ptr<link>(const address &where)>;

/**
 * Tries each device and prints the servers that answer. For devices named in the options, it also prints why
 * no server was found. It spends at most a second on each device.
 *
 * @param options  which devices to try
 * @param streams  where to print
 * @return success, or no_connection if no device answers
 */
exit_code scan(const scan_options &options, const command_streams &streams);

/**
 * Like the function above, but over links that the caller opens.
 *
 * @param open  opens the link to a device
 * @param loop  the event loop of the links
 */
exit_code scan(const scan_options &options, const command_streams &streams, const link_opener &open,
               const std::shared_ptr<event_loop> &loop);

/** The command. */
command scan_command();

} // namespace vantor

#endif
