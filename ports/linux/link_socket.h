/** @file
 * Links over a listening socket.
 */
#ifndef VANTOR_LINUX_LINK_SOCKET_H
#define VANTOR_LINUX_LINK_SOCKET_H

#include <chrono>

#include "link.h"

/** Sends a message to a client that is not served. It fits the buffer of any new connection. */
void send_refusal(int client, const std::string &message);

/** Serves one connection at a time and rejects others. */
class socket_link_t : public link_t
{
public:
    ~socket_link_t() override;

    bool accept_host() override;
    void close_host() override;

    /** None for a while after a host could not be accepted: it would be reported again at once. */
    int other_hosts() const override;
    int64_t other_hosts_return_us() const override;

    void reject_other_host() override;

protected:
    /** Creates the socket that listens. */
    explicit socket_link_t(int family);

    int listener() const
    {
        return listener_;
    }

    /** Prepares the connection of a new host. */
    virtual void prepare(int /*host*/)
    {
    }

private:
    /** Accepts a host that wants to connect; returns its connection, or a negative number. */
    int accept_connection();

    int listener_;
    int accept_error_ = 0; /**< why no host could be accepted at the last try; 0 if one could */
    std::chrono::steady_clock::time_point next_try_;
};

#endif
