/** @file
 * What the cases of the self-test stand on: one server, talked to message by message.
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

/** What a case expected, and what came instead. */
struct discrepancy
{
    std::string expected;
    std::string got;
};

/** Ends a case that failed. */
class case_failed : public error
{
public:
    case_failed(std::string expected, std::string got)
        : error(got),
          what_(std::make_shared<const discrepancy>(discrepancy{std::move(expected), std::move(got)}))
    {
    }

    /** What was expected, and what came instead. */
    [[nodiscard]] const discrepancy &details() const noexcept
    {
        return *what_;
    }

private:
    std::shared_ptr<const discrepancy> what_; /**< shared, so that copying the exception cannot fail */
};

/** Ends a case that does not apply to a server; the text says why. */
class case_skipped : public error
{
public:
    using error::error;
};

/** Ends the case as failed unless a condition is true. */
void check(bool condition, const std::string &expected, const std::string &got);

/** A JSON value as text, cut to the length of a line. */
std::string describe(const nlohmann::json &value);

/** How long a server was waited for, as text. */
std::string within(std::chrono::milliseconds timeout);

/** How often a link is opened while the server has not noticed yet that the host before is gone. */
inline constexpr int attempts_while_busy = 100;

/** What kind of link leads to the server. */
struct link_traits
{
    bool serial = false;           /**< it has a baud rate of its own */
    bool closes_with_host = false; /**< the server can notice that its host is gone */
};

/** A reading of the server's clock, at a moment between two of the host's clock. */
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
     * @param traits      what kind of link that is
     * @param timeouts    how long to wait for what
     * @param now         the clock by which the links wait
     */
    bench(client::link_factory open_links, link_traits traits, client_timeouts timeouts, time_source now);

    /** Connects to the server, for the first time or again, and ends its session. */
    void connect();

    /** Lets the host go: closes the link. */
    void disconnect();

    /** Brings the server to rest, whatever a case left behind. */
    void rest();

    /** What the server said of itself when it was connected. */
    [[nodiscard]] const server_info &server() const;

    /**
     * Ends the case as skipped unless the server's ticks are fine enough to compare times.
     *
     * @return ticks per second
     */
    double require_ticks() const;

    /** What kind of link leads to the server. */
    [[nodiscard]] const link_traits &traits() const noexcept
    {
        return traits_;
    }

    /** How long to wait for what. */
    [[nodiscard]] const client_timeouts &timeouts() const noexcept
    {
        return timeouts_;
    }

    /** A moment from now, by the clock of the links. */
    [[nodiscard]] time_point after(std::chrono::milliseconds span) const;

    /** The time left until a moment; none when it is over. */
    [[nodiscard]] std::chrono::milliseconds time_until(time_point moment) const;

    /** Opens one more link, while the host is gone. */
    [[nodiscard]] std::unique_ptr<link> open_link() const;

    /** The link to the server. */
    [[nodiscard]] link &line() noexcept
    {
        return *line_;
    }

    /** The connected sensors; ends the case as skipped when there are none. */
    [[nodiscard]] const std::vector<unsigned> &sensors() const;

    /** Sends bytes as they are. */
    void send(std::string_view bytes);

    /** Bytes sent since the bench exists. */
    [[nodiscard]] uint64_t bytes_sent() const noexcept
    {
        return bytes_sent_;
    }

    /** The next message that is not a log line; nothing when none comes in time. */
    std::optional<message> receive(std::chrono::milliseconds timeout);

    /** The next message, which must come within the time-out of an answer. */
    message next(const std::string &awaited);

    /** Sends a command, which must be answered as executed; returns the answer. */
    message execute(const nlohmann::json &command);

    /** Sends a line, which must be refused with a code. */
    void refuse(std::string_view line, const std::string &code);

    /** Asks for the statistics, and reads the clock by them. */
    message statistics();

    /** Reads the server's clock; ends the case as failed when the statistics lack it. */
    clock_reading read_clock();

    /** The first reading of the clock since the server was connected. */
    [[nodiscard]] const std::optional<clock_reading> &first_reading() const noexcept
    {
        return first_reading_;
    }

    /** Checks that the server executes the next command. */
    void ping();

    /** Measures how long a number of bytes is on its way, by answers to long and short commands: the least of
     * three. */
    std::chrono::milliseconds time_to_receive(size_t size);

    /** Sets up a session; its configuration must be accepted. */
    const session_metadata &configure(const nlohmann::json &configuration);

    /** Measures one frame and checks it. */
    frame measure();

    /** The next frame of a stream, checked. */
    frame next_frame();

    /** Whether a message is a frame. */
    [[nodiscard]] static bool is_frame(const message &received);

    /** Checks a frame: its payload and its shape fit the metadata, and no tick goes back. */
    frame check_frame(const message &received);

    /** What ended a number of frames. */
    struct stream_end
    {
        message answer;
        unsigned frames = 0;
    };

    /** The next message that is not a frame, within the time-out of an answer; checks the frames before it.
     */
    stream_end next_after_frames(const std::string &awaited);

    /** Sends a command that ends a stream, checks the frames before its answer; returns their number. */
    unsigned end_stream(const std::string &command);

    /** Has the server send its log; @p level as in the command "log". */
    void forward_log(const std::string &level);

    /** Takes the log lines received so far. */
    std::vector<log_line> take_log();

private:
    void open_host();
    client &host();
    void check_ticks(const frame &received);

    client::link_factory open_links_;
    link_traits traits_;
    client_timeouts timeouts_;
    time_source now_;
    std::optional<client> host_;
    std::optional<server_info> server_;
    link *line_ = nullptr; /**< owned by host_ */
    uint64_t bytes_sent_ = 0;
    std::shared_ptr<const session_metadata> metadata_;
    std::vector<uint32_t> ticks_; /**< of the items of the last frame */
    std::vector<log_line> log_;
    std::optional<clock_reading> first_reading_;
    std::optional<clock_reading> last_reading_; /**< nothing when the last statistics had none */
};

/** An item that takes little time and few bytes on any board. */
nlohmann::json small_item(unsigned sensor);

/** A session of one small item. */
nlohmann::json small_session(bench &on);

} // namespace vantor::selftest

#endif
