/** @file
 * A link over a serial line.
 */
#ifndef VANTOR_LINK_SERIAL_H
#define VANTOR_LINK_SERIAL_H

#include <boost/asio/serial_port.hpp>

#include "client/stream_link.h"

namespace vantor
{

/** A link over a serial line: 8 data bits, no parity, one stop bit, no flow control. */
class serial_link : public stream_link<boost::asio::serial_port>
{
public:
    /**
     * Opens the device.
     *
     * @throws connect_error if it cannot be opened or does not support the baud rate
     */
    serial_link(const serial_address &where, std::shared_ptr<event_loop> events);

    uint32_t set_baudrate(uint32_t baudrate) override;

private:
    uint32_t baudrate_;
};

} // namespace vantor

#endif
