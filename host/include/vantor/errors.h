/** @file
 * What can go wrong between a host and a server: one exception type for each kind of failure.
 *
 * Every text is a sentence that says what happened and, where a person can do something, what to change.
 */
#ifndef VANTOR_ERRORS_H
#define VANTOR_ERRORS_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace vantor
{

/** Base of every failure that this library reports. */
class error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/** The text that names a server ("tcp:HOST:PORT", …) cannot be understood. */
class address_error : public error
{
public:
    using error::error;
};

/** No server could be reached or started at the address. */
class connect_error : public error
{
public:
    using error::error;
};

/** The server closed the link, or the link broke. */
class connection_lost : public error
{
public:
    using error::error;
};

/** The server did not answer, or the link took no bytes, in the time allowed. */
class timeout_error : public error
{
public:
    using error::error;
};

/** Bytes arrived that are no message; the next message is found by itself. */
class bad_message : public error
{
public:
    /**
     * @param position  where the fault is, in bytes from the start of the connection
     * @param reason    what is wrong
     */
    bad_message(uint64_t position, const std::string &reason)
        : error("byte " + std::to_string(position) + ": " + reason), position_(position)
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

/** A whole message arrived that says something the protocol or the session's metadata do not allow. */
class protocol_error : public error
{
public:
    using error::error;
};

/** The server refused a command or ended the session. */
class server_error : public error
{
public:
    /**
     * @param code     the server's stable code, such as "wrong_state"
     * @param message  the server's sentence for people
     */
    server_error(const std::string &code, const std::string &message)
        : error(message + " (" + code + ")"),
          details_(std::make_shared<const details>(details{code, message}))
    {
    }

    /** The server's stable code, such as "wrong_state". */
    [[nodiscard]] const std::string &code() const noexcept
    {
        return details_->code;
    }

    /** The server's sentence for people. */
    [[nodiscard]] const std::string &message() const noexcept
    {
        return details_->message;
    }

private:
    /** Shared, so that copying the exception cannot fail. */
    struct details
    {
        std::string code;
        std::string message;
    };

    std::shared_ptr<const details> details_;
};

} // namespace vantor

#endif
