/** @file
 * Opens links to servers, and to boards behind message brokers.
 */
#ifndef VANTOR_SERVER_LINKS_H
#define VANTOR_SERVER_LINKS_H

#include <memory>

#include "commands/command.h"
#include "vantor/address.h"
#include "vantor/client.h"
#include "vantor/event_loop.h"

namespace vantor
{

/**
 * Opens links to a server or to a board behind a message broker.
 *
 * @param where    the address
 * @param loop     of the links
 * @param streams  where lines about a board behind a broker are printed; must outlive the links
 * @throws address_error if the address of such a board is not valid
 */
client::link_factory links_to(const address &where, const std::shared_ptr<event_loop> &loop,
                              const command_streams &streams);

} // namespace vantor

#endif
