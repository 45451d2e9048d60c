/** @file
 * Opens links to servers, and to boards behind message brokers.
 */
#include "commands/server_links.h"

#include <ostream>

#include "bridge/remote_links.h"
#include "recording/printable.h"

namespace vantor
{

client::link_factory links_to(const address &where, const std::shared_ptr<event_loop> &loop,
                              const command_streams &streams)
{
    if (const auto *const relayed = std::get_if<relayed_address>(&where))
    {
        return links_to_remote_board(relayed->text, security_of_environment(), loop,
                                     [&streams](const std::string &line) {
                                         streams.err << printable(line) << "\n" << std::flush;
                                     });
    }
    return [where, loop] { return open_link(where, client_timeouts{}.connect, loop); };
}

} // namespace vantor
