/** @file
 * `vantor scan`: which servers are on the serial devices of this machine.
 */
#ifndef VANTOR_SCAN_H
#define VANTOR_SCAN_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands/command.h"
#include "vantor/link.h"
#include "vantor/time_source.h"

namespace vantor
{

/** What is to be scanned. */
struct scan_options
{
    std::vector<std::string> devices; /**< empty for all serial devices of this machine */
    uint64_t baudrate = 115200;
    bool json = false;
};

/** Opens the link to a device. */
using link_opener = std::function<std::unique_ptr<link>(const address &where)>;

/** Opens the link to a device of this machine. */
std::unique_ptr<link> open_scanned_link(const address &where);

/**
 * Asks each device and prints those that answer; of devices that were named it says why others do not. No
 * device takes longer than a second, whatever it sends.
 *
 * @param options  which devices
 * @param streams  where to print
 * @param open     opens the devices
 * @param now      the clock of the second
 * @return success, or no_connection when no device answers
 */
exit_code scan(const scan_options &options, const command_streams &streams,
               const link_opener &open = open_scanned_link,
               const time_source &now = std::chrono::steady_clock::now);

/** The command. */
command scan_command();

} // namespace vantor

#endif
