/** @file
 * Server addresses: "tcp:HOST:PORT", "unix:PATH", "serial:DEVICE@BAUD", "sim:" and "nats:HOST/SITE/BOARD".
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
    std::string host;  /**< name or IP address; an IPv6 address without brackets */
    uint16_t port = 0; /**< 1 to 65535 */
};

/** A server that listens on a socket in the file system. */
struct unix_address
{
    std::string path; /**< of the socket, such as "/run/user/1000/radar" */
};

/** A server at the other end of a serial line. */
struct serial_address
{
    std::string device;         /**< such as "/dev/ttyACM0" */
    uint32_t baudrate = 115200; /**< in bits per second */
};

/** A simulated server that is started and ended with the connection. */
struct simulator_address
{
    std::vector<std::string> arguments; /**< additional arguments for the program vantor_server */
};

/** A board behind a message broker. The program vantor can connect to it; this library cannot. */
struct relayed_address
{
    std::string text; /**< "nats:HOST[:PORT]/SITE/BOARD[@TIME]", or anything at an MQTT broker; not checked */
};

/** The address of a server. */
using address = std::variant<tcp_address, unix_address, serial_address, simulator_address, relayed_address>;

/**
 * Parses an address.
 *
 * @param text  "tcp:HOST:PORT" (an IPv6 address in brackets), "unix:PATH", "serial:DEVICE" (115200 baud),
 *              "serial:DEVICE@BAUD", "nats:…", "sim:", or "sim:ARGUMENTS" with the arguments separated by
 * spaces; as in a shell, arguments or parts of them can be in single or double quotes, and a backslash
 *              outside single quotes makes the next character an ordinary one
 * @return the address
 * @throws address_error if the text has none of these forms
 */
address parse_address(std::string_view text);

/** Formats an address so that parse_address can read it. */
std::string to_string(const address &where);

} // namespace vantor

#endif
