/** @file
 * A scripted server in virtual time.
 */
#ifndef VANTOR_SCRIPTED_SERVER_H
#define VANTOR_SCRIPTED_SERVER_H

#include <string>
#include <vector>

#include "manual_clock.h"
#include "scripted_line.h"
#include "server_script.h"
#include "vantor/client.h"

namespace vantor::test
{

/**
 * A server at the far end of a scripted line. Its reactions take no time unless they call pause(); what they
 * send arrives while the host waits for it.
 */
class scripted_server : public host_connection
{
public:
    /** @param clock  must outlive the server */
    explicit scripted_server(manual_clock &clock);

    /** Sets the reaction to a command. */
    void on(const std::string &command, reaction what);

    /** In a reaction: everything sent from now on arrives this much later. */
    void pause(manual_clock::duration span) noexcept;

    using host_connection::send;
    void send(const std::string &bytes) override;
    void close() override;

    /** Opens links to the server, which must outlive them. */
    [[nodiscard]] client::link_factory links();

    /** The line to the server. */
    [[nodiscard]] const scripted_line &line() const noexcept
    {
        return line_;
    }

    /** The lines received so far. */
    [[nodiscard]] std::vector<std::string> lines() const
    {
        return script_.lines();
    }

private:
    void receive(const std::string &bytes);

    manual_clock &clock_;
    scripted_line line_;
    server_script script_;
    std::string input_;             /**< of the line that is being received */
    manual_clock::duration moment_; /**< at which what is sent arrives */
};

} // namespace vantor::test

#endif
