/** @file
 * Failures between a host and a server: one exception type for each kind.
 *
 * Every message is a sentence that says what happened and, if possible, what to change.
 */
#ifndef VANTOR_ERRORS_H
#define VANTOR_ERRORS_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace vantor
{

/** Base class of all exceptions of this library except cancelled. */
class error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/** A server address ("tcp:HOST:PORT", …) is not valid. */
class address_error : public error
{
public:
    using error::error;
};

/** The server at the address could not be reached or started. */
class connect_error : public error
{
public:
    using error::error;
};

/** The server closed the link, or the link failed. */
class connection_lost : public error
{
public:
    using error::error;
};

/** The server did not answer, or the link did not accept bytes, in time. */
class timeout_error : public error
{
public:
    using error::error;
};

/** The received bytes are not a valid message. The parser finds the next message automatically. */
class bad_message : public error
{
public:
    /**
     * @param position  where the fault is, in bytes from the start of the connection
     * @param reason    what is wrong
     */
    bad_message(uint64_t position, const std::string &reason)
        : error("Invalid data from the server at byte " + std::to_string(position) + ": " + reason + "."),
          position_(position)
    {
    }

    /** Where the fault is, in bytes from the start of the connection. */
    [[nodiscard]] uint64_t position() const noexcept
    {
        return position_;
    }

private:
    uint64_t position_;
};

/** A message was received that the protocol or the metadata of the session does not allow. */
class protocol_error : public error
{
public:
    using error::error;
};

/** Waiting was cancelled by client::cancel() or event_loop::cancel(). It is a request, so it is not an error.
 */
class cancelled : public std::runtime_error
{
public:
    cancelled() : std::runtime_error("Waiting was cancelled.")
    {
    }
};

/** The server refused a command or ended the session. */
class server_error : public error
{
public:
    /**
     * @param code     the error code, such as "wrong_state"
     * @param message  the error message
     */
    server_error(const std::string &code, const std::string &message)
        : error(message + " (" + code + ")"),
          details_(std::make_shared<const details>(details{code, message}))
    {
    }

    /** The error code of the server, such as "wrong_state". */
    [[nodiscard]] const std::string &code() const noexcept
    {
        return details_->code;
    }

    /** The error message of the server. */
    [[nodiscard]] const std::string &message() const noexcept
    {
        return details_->message;
    }

private:
    /** Shared, so that copying the exception does not throw. */
    struct details
    {
        std::string code;
        std::string message;
    };

    std::shared_ptr<const details> details_;
};

} // namespace vantor

#endif
