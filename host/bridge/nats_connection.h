/** @file
 * A connection to a NATS server.
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
/** A subscription. It must be destroyed after its connection: the library may be delivering a message to it.
 */
using nats_subscription = std::unique_ptr<natsSubscription, nats_deleter<natsSubscription_Destroy>>;
using nats_message = std::unique_ptr<natsMsg, nats_deleter<natsMsg_Destroy>>;
using nats_streams = std::unique_ptr<jsCtx, nats_deleter<jsCtx_Destroy>>;

/** Throws broker_error unless a call of the library has succeeded. @param action  what was to be done */
void require(natsStatus status, const std::string &action);

class nats_dialer;

/** Closes a connection. */
struct nats_link_closer
{
    nats_dialer *dialer = nullptr; /**< which has opened it */

    void operator()(natsConnection *link) const noexcept;
};

using nats_link = std::unique_ptr<natsConnection, nats_link_closer>;

/**
 * Connects to a NATS server, or if that fails, to others of its cluster, which the servers have named in
 * earlier connections.
 */
class nats_dialer
{
public:
    /**
     * @param where     the server
     * @param security  what proves who is who
     * @throws broker_error if a file of @p security cannot be read
     */
    nats_dialer(broker_address where, const broker_security &security);

    /**
     * Connects. The connection must be closed before this object is destroyed.
     *
     * @throws broker_error if that fails
     */
    nats_link connect();

    /** Takes over the servers of the cluster of a connection. */
    void learn_servers(natsConnection &link);

private:
    broker_address where_;
    nats_options options_;
};

/** The streams of the server. */
nats_streams open_streams(natsConnection &link);

} // namespace vantor

#endif
