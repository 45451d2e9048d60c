/** @file
 * A link over a serial line.
 */
#include "client/link_serial.h"

#include <utility>

namespace vantor
{

serial_link::serial_link(const serial_address &where, std::shared_ptr<event_loop> events)
    : stream_link(std::move(events)), baudrate_(where.baudrate)
{
    boost::system::error_code failure;
    stream().open(where.device, failure);
    if (failure == boost::system::errc::inappropriate_io_control_operation)
    {
        throw connect_error("Cannot open " + where.device + ": it is not a serial device.");
    }
    if (failure)
    {
        throw connect_error("Cannot open the serial device " + where.device + ": " + failure.message() +
                            ". Check the name and your permissions, and that no other program uses it.");
    }
    const auto set = [&](const auto &option) {
        if (!failure)
        {
            stream().set_option(option, failure);
        }
    };
    using port = boost::asio::serial_port_base;
    set(port::character_size(8));
    set(port::parity(port::parity::none));
    set(port::stop_bits(port::stop_bits::one));
    set(port::flow_control(port::flow_control::none));
    set(port::baud_rate(where.baudrate));
    if (failure)
    {
        throw connect_error("Cannot set the serial device " + where.device + " to " +
                            std::to_string(where.baudrate) + " baud: " + failure.message() + ".");
    }
}

uint32_t serial_link::set_baudrate(uint32_t baudrate)
{
    boost::system::error_code failure;
    stream().set_option(boost::asio::serial_port_base::baud_rate(baudrate), failure);
    if (failure)
    {
        throw error("Cannot set the serial line to " + std::to_string(baudrate) +
                    " baud: " + failure.message() + ".");
    }
    return std::exchange(baudrate_, baudrate);
}

} // namespace vantor
