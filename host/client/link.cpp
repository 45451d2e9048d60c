/** @file
 * Opens a link to an address.
 */
#include "vantor/link.h"

#include <utility>

#include "client/link_serial.h"
#include "client/link_simulator.h"
#include "client/link_tcp.h"
#include "client/link_unix.h"

namespace vantor
{
namespace
{

/** Opens the link for each kind of address. */
struct link_opener
{
    std::chrono::milliseconds timeout;
    std::shared_ptr<event_loop> loop;

    std::unique_ptr<link> operator()(const tcp_address &where) const
    {
        return std::make_unique<tcp_link>(where, timeout, loop);
    }

    std::unique_ptr<link> operator()(const unix_address &where) const
    {
        return std::make_unique<unix_link>(where, timeout, loop);
    }

    std::unique_ptr<link> operator()(const serial_address &where) const
    {
        return std::make_unique<serial_link>(where, loop);
    }

    std::unique_ptr<link> operator()(const simulator_address &where) const
    {
        return std::make_unique<simulator_link>(where, loop);
    }

    std::unique_ptr<link> operator()(const relayed_address &where) const
    {
        throw connect_error("Only \"vantor record\", \"view\" and \"replay\" can connect to " + where.text +
                            ", a board behind a message broker.");
    }
};

} // namespace

std::unique_ptr<link> open_link(const address &where, std::chrono::milliseconds timeout,
                                std::shared_ptr<event_loop> loop)
{
    return std::visit(link_opener{.timeout = timeout, .loop = std::move(loop)}, where);
}

} // namespace vantor
