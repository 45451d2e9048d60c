/** @file
 * Links over a listening socket.
 */
#ifndef VANTOR_LINUX_LINK_SOCKET_H
#define VANTOR_LINUX_LINK_SOCKET_H

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

    int other_hosts() const override
    {
        return listener_;
    }

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
    int listener_;
};

#endif
