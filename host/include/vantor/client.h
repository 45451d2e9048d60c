/** @file
 * A conversation with a server: commands out, typed answers and frames in.
 */
#ifndef VANTOR_CLIENT_H
#define VANTOR_CLIENT_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/link.h"
#include "vantor/message_parser.h"
#include "vantor/session.h"
#include "vantor/time_source.h"

namespace vantor
{

/** The protocol version that this library speaks. */
inline constexpr int protocol_version = 1;

/** One line of a server's log. */
struct log_line
{
    std::string level;  /**< "ERROR", "WARNING", "INFO", "VERBOSE" or "DEBUG" */
    std::string module; /**< which part of the server wrote it */
    std::string text;
};

/** How long a client waits. */
struct client_timeouts
{
    std::chrono::milliseconds connect{5000};    /**< for connecting or starting a server */
    std::chrono::milliseconds answer{5000};     /**< for the answer to a command */
    std::chrono::milliseconds configure{60000}; /**< for the session metadata: sensors calibrate meanwhile */
    std::chrono::milliseconds frame{10000};     /**< for a single frame */
};

/**
 * A conversation with one server.
 *
 * A slow reader loses nothing: bytes are taken from the link only when a message is asked for, so the server
 * waits. Every call but those of other objects may throw: connection_lost, timeout_error, bad_message,
 * protocol_error, and server_error when the server refuses. After bad_message (which a frame that does not
 * fit the session's metadata is too) the call may be repeated; after any other, end() brings the server back
 * to a known state, and reconnect() does after connection_lost.
 *
 * For one thread at a time.
 */
class client
{
public:
    using link_factory = std::function<std::unique_ptr<link>()>;
    using frame_handler = std::function<void(frame &&)>;
    using log_handler = std::function<void(const log_line &)>;

    /**
     * Connects, ends whatever session the server was in, and identifies the server. A board that is still
     * starting has as long as the time-out of an answer: the first command is repeated every second.
     *
     * @param where     the server
     * @param timeouts  how long to wait for what
     * @throws connect_error when there is no server
     * @throws server_error with the code "busy" when it serves another host
     * @throws protocol_error when it speaks another version of the protocol
     */
    explicit client(const address &where, client_timeouts timeouts = {});

    /**
     * The same over links that the caller opens.
     *
     * @param open_links  opens a link, now and at every reconnect()
     * @param timeouts    how long to wait for what
     * @param now         the clock by which the links wait
     */
    explicit client(link_factory open_links, client_timeouts timeouts = {},
                    time_source now = std::chrono::steady_clock::now);

    /** Drops the link and connects again, to an idle server. */
    void reconnect();

    /** What the server said of itself when connecting. */
    [[nodiscard]] const server_info &server() const noexcept;

    /** Asks the server anew what it is. */
    const server_info &identify();

    /** Checks that the server answers. */
    void ping();

    /** The server's statistics, as it sends them. */
    nlohmann::json stats();

    /**
     * Sets up a session.
     *
     * @param configuration  the configuration document
     * @return the frame layout and the calibrations; valid until the next session
     */
    std::shared_ptr<const session_metadata> configure(const nlohmann::json &configuration);

    /** Starts the stream of frames. */
    void start();

    /**
     * Waits for the next frame of the stream.
     *
     * @param timeout  how long to wait
     * @return the frame, or nothing when none came in time
     */
    std::optional<frame> receive_frame(std::chrono::milliseconds timeout);

    /**
     * Stops the stream of frames.
     *
     * @param handler  receives the frames that were still on their way; when empty they are dropped
     */
    void stop(const frame_handler &handler = {});

    /** Measures one frame, while no stream runs. */
    frame single_frame();

    /** Ends the session, whatever state it is in; frames, errors and other messages on their way are dropped.
     */
    void end();

    /**
     * Has the server send its log.
     *
     * @param level    least severe level to send: "OFF", "ERROR", "WARNING", "INFO", "VERBOSE" or "DEBUG"
     * @param handler  called for every line, from within the calls of this object that receive
     */
    void forward_log(std::string_view level, log_handler handler);

    /**
     * Changes the baud rate of a serial line at both ends. When the server does not answer at the new one,
     * the line goes back to the old one, and so does the server within two seconds.
     *
     * @param baudrate  in bits per second, at most server().max_baudrate
     */
    void set_baudrate(uint32_t baudrate);

    /** Sends bytes as they are, whatever the server makes of them. For tests of a server. */
    void send(std::string_view text);

    /**
     * Waits for the next message of any kind except a log line. For tests of a server.
     *
     * @param timeout  how long to wait
     * @return the message, or nothing when none came in time
     */
    std::optional<message> receive(std::chrono::milliseconds timeout);

    /** Bytes that the payload of the message under way still lacks; 0 when none is under way. */
    [[nodiscard]] size_t bytes_missing() const noexcept;

    /** Bytes of all messages received since connecting. */
    [[nodiscard]] uint64_t bytes_received() const noexcept;

private:
    using time_point = std::chrono::steady_clock::time_point;

    void send_command(const nlohmann::json &command);
    void find_server();
    void send_end(std::chrono::milliseconds timeout);
    std::chrono::milliseconds repeat_end(std::chrono::milliseconds left);
    std::optional<message> poll_message(time_point deadline);
    message next_message(time_point &deadline, const std::string &awaited);
    message next_answer(time_point &deadline, const std::string &awaited);
    bool take_late_answer(const message &received);
    bool deliver_log(const nlohmann::json &header);
    nlohmann::json request(const nlohmann::json &command);
    nlohmann::json await_answer(const std::string &command, const frame_handler &handler);
    void check_answer(const message &received, const std::string &command) const;
    frame decode(const message &received) const;

    link_factory open_links_;
    client_timeouts timeouts_;
    time_source now_;
    std::unique_ptr<link> link_;
    message_parser parser_;
    std::vector<std::byte> buffer_;
    server_info server_;
    std::shared_ptr<const session_metadata> metadata_;
    log_handler on_log_;
    std::optional<time_point> end_repetition_; /**< when "end" is sent again; nothing when it is not */
    unsigned unanswered_ends_ = 0;             /**< some of them the server may never have received */
};

} // namespace vantor

#endif
