/** @file
 * Where a server is: the text forms "tcp:HOST:PORT", "serial:DEVICE@BAUD" and "sim:".
 */
#ifndef VANTOR_ADDRESS_H
#define VANTOR_ADDRESS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vantor
{

/** A server that listens on a TCP port. */
struct tcp_address
{
    std::string host;  /**< name or number; an IPv6 number without brackets */
    uint16_t port = 0; /**< 1 to 65535 */
};

/** A server at the other end of a serial line. */
struct serial_address
{
    std::string device;         /**< such as "/dev/ttyACM0" */
    uint32_t baudrate = 115200; /**< in bits per second */
};

/** A simulated server that is started for this connection and ends with it. */
struct simulator_address
{
    std::vector<std::string> arguments; /**< further arguments for the program vantor_server */
};

/** Where a server is. */
using address = std::variant<tcp_address, serial_address, simulator_address>;

/**
 * Reads an address.
 *
 * @param text  "tcp:HOST:PORT" (an IPv6 number in brackets), "serial:DEVICE" or "serial:DEVICE@BAUD" (115200
 *              when not given), "sim:" or "sim:ARGUMENTS" with the arguments separated by spaces, in double
 *              quotes when they hold some
 * @return the address
 * @throws address_error when the text has none of these forms
 */
address parse_address(std::string_view text);

/** Writes an address in the form that parse_address reads. */
std::string to_string(const address &where);

} // namespace vantor

#endif
