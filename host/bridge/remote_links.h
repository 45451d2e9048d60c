/** @file
 * Links to a board behind a message broker.
 */
#ifndef VANTOR_REMOTE_LINKS_H
#define VANTOR_REMOTE_LINKS_H

#include <functional>
#include <memory>
#include <string>

#include "bridge/broker.h"
#include "vantor/client.h"
#include "vantor/event_loop.h"

namespace vantor
{

/**
 * Links to a board behind a message broker. A thread serves it by the protocol, as `vantor replay` does; it
 * ends with the last copy of the result. A link that is opened again goes on with the next frame.
 *
 * @param text      "nats:HOST[:PORT]/SITE/BOARD[@TIME]"
 * @param security  what proves who broker and program are
 * @param loop      of the links
 * @param report    called by the loop with lines for the user
 * @throws address_error if the address is not valid
 */
client::link_factory links_to_remote_board(const std::string &text, const broker_security &security,
                                           const std::shared_ptr<event_loop> &loop,
                                           std::function<void(const std::string &line)> report);

/** What the environment says about security: NATS_CA, NATS_CERT, NATS_KEY and NATS_CREDS, as the tools of
 * NATS use them. */
broker_security security_of_environment();

} // namespace vantor

#endif
