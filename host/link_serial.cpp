/** @file
 * A link over a serial line.
 */
#include "link_serial.h"

namespace vantor
{

serial_link::serial_link(const serial_address &where)
{
    asio::error_code failure;
    stream().open(where.device, failure);
    if (failure)
    {
        throw connect_error("Cannot open the serial device " + where.device + ": " + failure.message() +
                            ". Check its name, that you may use it, and that no other program does.");
    }
    using port = asio::serial_port_base;
    stream().set_option(port::character_size(8));
    stream().set_option(port::parity(port::parity::none));
    stream().set_option(port::stop_bits(port::stop_bits::one));
    stream().set_option(port::flow_control(port::flow_control::none));
    stream().set_option(port::baud_rate(where.baudrate), failure);
    if (failure)
    {
        throw connect_error("The serial device " + where.device + " cannot be set to " +
                            std::to_string(where.baudrate) + " baud: " + failure.message() + ".");
    }
}

void serial_link::set_baudrate(std::uint32_t baudrate)
{
    asio::error_code failure;
    stream().set_option(asio::serial_port_base::baud_rate(baudrate), failure);
    if (failure)
    {
        throw error("The serial line cannot be set to " + std::to_string(baudrate) +
                    " baud: " + failure.message() + ".");
    }
}

} // namespace vantor
