/** @file
 * The test bench of the self-test: a server, and functions to exchange messages with it.
 */
#ifndef VANTOR_SELFTEST_BENCH_H
#define VANTOR_SELFTEST_BENCH_H

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/client.h"
#include "vantor/errors.h"

namespace vantor::selftest
{

/** What a case expected, and what it got instead. */
struct discrepancy
{
    std::string expected;
    std::string got;
};

/** Thrown to end a case that failed. */
class case_failed : public error
{
public:
    case_failed(std::string expected, std::string got)
        : error(got),
          what_(std::make_shared<const discrepancy>(discrepancy{std::move(expected), std::move(got)}))
    {
    }

    /** What was expected, and what was received instead. */
    [[nodiscard]] const discrepancy &details() const noexcept
    {
        return *what_;
    }

private:
    std::shared_ptr<const discrepancy> what_; /**< shared, so that copying the exception does not throw */
};

/** Thrown to end a case that does not apply to a server; the message gives the reason. */
class case_skipped : public error
{
public:
    using error::error;
};

/** Fails the case unless a condition is true. */
void check(bool condition, const std::string &expected, const std::string &got);

/** A JSON value as text, shortened to the length of a line. */
std::string describe(const nlohmann::json &value);

/** Formats a waiting time. */
std::string within(std::chrono::milliseconds timeout);

/** How often to connect while the server has not yet detected that the previous host has disconnected. */
inline constexpr int attempts_while_busy = 100;

/** Properties of the link to the server. */
struct link_traits
{
    bool serial = false;           /**< it has a baud rate */
    bool closes_with_host = false; /**< the server can detect that its host has disconnected */
};

/** A reading of the server's clock, taken between two readings of the host's clock. */
struct clock_reading
{
    std::chrono::duration<double> uptime{};
    std::chrono::steady_clock::time_point asked;
    std::chrono::steady_clock::time_point answered;
};

/** A server and the conversation with it. */
class bench
{
public:
    using time_point = std::chrono::steady_clock::time_point;

    /**
     * @param open_links  opens a link to the server
     * @param traits      properties of the link
     * @param timeouts    how long to wait
     * @param loop        the event loop of the links
     */
    bench(client::link_factory open_links, link_traits traits, client_timeouts timeouts,
          std::shared_ptr<event_loop> loop);

    /** Connects to the server, for the first time or again, and ends its session. */
    void connect();

    /** Closes the link. */
    void disconnect();

    /** Ends the session like client::end_promptly(). */
    void leave();

    /** Makes the server idle, whatever the previous case left behind. */
    void rest();

    /** What the server reported about itself after connecting. */
    [[nodiscard]] const server_info &server() const;

    /**
     * Skips the case unless the resolution of the server's ticks is good enough to compare times.
     *
     * @return ticks per second
     */
    double require_ticks() const;

    /** Properties of the link to the server. */
    [[nodiscard]] const link_traits &traits() const noexcept
    {
        return traits_;
    }

    /** The time-outs. */
    [[nodiscard]] const client_timeouts &timeouts() const noexcept
    {
        return timeouts_;
    }

    /** The time after a duration from now, by the clock of the links. */
    [[nodiscard]] time_point after(std::chrono::milliseconds span) const;

    /** The time left until a moment; 0 if it has passed. */
    [[nodiscard]] std::chrono::milliseconds time_until(time_point moment) const;

    /** Opens another link, while the host is disconnected. */
    [[nodiscard]] std::unique_ptr<link> open_link() const;

    /** The link to the server. */
    [[nodiscard]] link &line() noexcept
    {
        return *line_;
    }

    /** The connected sensors; skips the case if there are none. */
    [[nodiscard]] const std::vector<unsigned> &sensors() const;

    /** Sends bytes unchanged. */
    void send(std::string_view bytes);

    /** Number of bytes sent since the bench was created. */
    [[nodiscard]] uint64_t bytes_sent() const noexcept
    {
        return bytes_sent_;
    }

    /** Receives the next message that is not a log line; nothing if none arrives in time. */
    std::optional<message> receive(std::chrono::milliseconds timeout);

    /** Receives the next message, which must arrive within the answer time-out. */
    message next(const std::string &awaited);

    /** Sends a command, which must succeed; returns the answer. */
    message execute(const nlohmann::json &command);

    /** Sends a line, which must be refused with an error code. */
    void refuse(std::string_view line, const std::string &code);

    /** Requests the statistics, and takes a clock reading from them. */
    message statistics();

    /** Reads the server's clock; fails the case if it is not in the statistics. */
    clock_reading read_clock();

    /** The first clock reading since connecting. */
    [[nodiscard]] const std::optional<clock_reading> &first_reading() const noexcept
    {
        return first_reading_;
    }

    /** Checks that the server executes the next command. */
    void ping();

    /** Measures the transfer time of a number of bytes from the answer times of long and short commands;
     * returns the shortest of three results. */
    std::chrono::milliseconds time_to_receive(size_t size);

    /** Configures a session; the server must accept it. */
    const session_metadata &configure(const nlohmann::json &configuration);

    /** Measures one frame and checks it. */
    frame measure();

    /** Receives and checks the next frame of a stream. */
    frame next_frame();

    /** Whether a message is a frame. */
    [[nodiscard]] static bool is_frame(const message &received);

    /** Checks a frame: its payload and structure fit the metadata, and ticks never decrease. */
    frame check_frame(const message &received);

    /** The first message after a number of frames. */
    struct stream_end
    {
        message answer;
        unsigned frames = 0;
    };

    /** Receives the next message that is not a frame, within the answer time-out; checks the frames before
     * it.
     */
    stream_end next_after_frames(const std::string &awaited);

    /** Sends a command that ends a stream, and checks the frames before its answer; returns their number. */
    unsigned end_stream(const std::string &command);

    /** Makes the server send its log; @p level as in the command "log". */
    void forward_log(const std::string &level);

    /** Returns and removes the log lines received so far. */
    std::vector<log_line> take_log();

private:
    void open_host();
    client &host();
    void check_ticks(const frame &received);

    client::link_factory open_links_;
    link_traits traits_;
    client_timeouts timeouts_;
    std::shared_ptr<event_loop> loop_;
    std::optional<client> host_;
    std::optional<server_info> server_;
    link *line_ = nullptr; /**< owned by host_ */
    uint64_t bytes_sent_ = 0;
    std::shared_ptr<const session_metadata> metadata_;
    std::vector<uint32_t> ticks_; /**< ticks of the items in the last frame */
    std::vector<log_line> log_;
    std::optional<clock_reading> first_reading_;
    std::optional<clock_reading> last_reading_; /**< nothing if the last statistics had none */
};

/** An item that needs little time and few bytes on any board. */
nlohmann::json small_item(unsigned sensor);

/** A session of one small item. */
nlohmann::json small_session(bench &on);

} // namespace vantor::selftest

#endif
