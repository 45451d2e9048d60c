/** @file
 * A connection to a NATS server, and how the batches of a site are stored there.
 */
#ifndef VANTOR_NATS_CONNECTION_H
#define VANTOR_NATS_CONNECTION_H

#include <memory>
#include <string>

#include <nats/nats.h>

#include "bridge/broker.h"
#include "bridge/broker_address.h"

namespace vantor
{

/** Owns an object of the NATS library. */
template <auto destroy> struct nats_deleter
{
    template <typename object_t> void operator()(object_t *object) const noexcept
    {
        destroy(object);
    }
};

using nats_options = std::unique_ptr<natsOptions, nats_deleter<natsOptions_Destroy>>;
using nats_link = std::unique_ptr<natsConnection, nats_deleter<natsConnection_Destroy>>;
/** A subscription. It must be destroyed after its connection: the library may be delivering a message to it.
 */
using nats_subscription = std::unique_ptr<natsSubscription, nats_deleter<natsSubscription_Destroy>>;
using nats_message = std::unique_ptr<natsMsg, nats_deleter<natsMsg_Destroy>>;
using nats_streams = std::unique_ptr<jsCtx, nats_deleter<jsCtx_Destroy>>;

/** Names of what belongs to a site. */
struct nats_names
{
    std::string frames_stream; /**< the stream with the batches */
    std::string states_stream; /**< the stream with the states of the boards */
    std::string prefix;        /**< of subjects: followed by the name of a board and ".frames" or ".state" */

    /** @param site  its name */
    explicit nats_names(const std::string &site);

    /** The subject of the batches of a board. */
    [[nodiscard]] std::string frames_of(const std::string &board) const
    {
        return prefix + board + ".frames";
    }

    /** The subject of the state of a board. */
    [[nodiscard]] std::string state_of(const std::string &board) const
    {
        return prefix + board + ".state";
    }
};

/** Throws broker_error unless a call of the library has succeeded. @param action  what was to be done */
void require(natsStatus status, const std::string &action);

/**
 * The options for a connection: address and security.
 *
 * @throws broker_error if a file cannot be read
 */
nats_options make_nats_options(const broker_address &where, const broker_security &security);

/**
 * Connects.
 *
 * @throws broker_error if that fails
 */
nats_link connect_nats(const natsOptions &options, const broker_address &where);

/** The streams of the server. */
nats_streams open_streams(natsConnection &link);

} // namespace vantor

#endif
