/** @file
 * A conversation with a server: sends commands, and receives answers and frames.
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

#include "vantor/board_clock.h"
#include "vantor/event_loop.h"
#include "vantor/link.h"
#include "vantor/loss_counter.h"
#include "vantor/message_parser.h"
#include "vantor/session.h"
#include "vantor/tick_clock.h"

namespace vantor
{

class frame_reader;

/** The protocol version of this library. */
inline constexpr int protocol_version = 1;

/** One line of a server's log. */
struct log_line
{
    std::string level;  /**< "ERROR", "WARNING", "INFO", "VERBOSE" or "DEBUG" */
    std::string module; /**< the part of the server that wrote it */
    std::string text;
};

/**
 * How long a client waits. While the payload of a message arrives, at 10 bytes per second or faster, it waits
 * longer.
 */
struct client_timeouts
{
    std::chrono::milliseconds connect{5000};    /**< for connecting or starting a server */
    std::chrono::milliseconds answer{5000};     /**< for the answer to a command */
    std::chrono::milliseconds configure{60000}; /**< for the session metadata: sensors calibrate meanwhile */
    std::chrono::milliseconds frame{10000};     /**< for a single frame */
};

/** Lowest rate at which the payload of a message may arrive, in bytes per second: a third of 300 baud. */
constexpr int64_t slowest_payload_rate = 10;

/**
 * A conversation with one server.
 *
 * A slow reader does not lose data: bytes are read from the link only when a message is requested, so the
 * server waits. Every function that communicates with the server can throw connection_lost, timeout_error,
 * bad_message, protocol_error, or server_error if the server reports an error, and cancelled after a call of
 * cancel(). After bad_message (also thrown for a frame that does not fit the metadata of the session), the
 * call can be repeated. After connection_lost, call reconnect(). After any other exception, end() brings the
 * server back to a known state.
 *
 * Not thread-safe except for cancel(): use an object from one thread at a time.
 */
class client
{
public:
    using link_factory = std::function<std::unique_ptr<link>()>;
    using frame_handler = std::function<void(frame &&)>;
    using log_handler = std::function<void(const log_line &)>;

    /**
     * Connects, ends any session that the server was in, and identifies the server. A board may still be
     * starting: the first command is repeated every second until the answer time-out.
     *
     * @param where     the server
     * @param timeouts  how long to wait
     * @param loop      runs the link; clients that are used on the same thread can share it
     * @throws connect_error if there is no server
     * @throws server_error with the code "busy" if the server is in use by another host
     * @throws protocol_error if the server uses another version of the protocol, or what answers does not use
     *         the protocol
     */
    explicit client(const address &where, client_timeouts timeouts = {},
                    const std::shared_ptr<event_loop> &loop = std::make_shared<event_loop>());

    /**
     * Like the constructor above, but over links that the caller opens.
     *
     * @param open_links  opens a link, now and at every reconnect()
     * @param timeouts    how long to wait
     * @param loop        the event loop of the links
     */
    explicit client(link_factory open_links, client_timeouts timeouts = {},
                    std::shared_ptr<event_loop> loop = std::make_shared<event_loop>());

    /**
     * Makes the call that is waiting for the server, or else the next one that has to wait, throw cancelled.
     * Can be called from any thread.
     */
    void cancel();

    /**
     * The file descriptor that becomes readable when bytes arrive, to pass to poll(); -1 if the link has
     * none. It changes with reconnect(). Bytes may have been read already: before poll(), call
     * receive_frame(0) until it returns nothing.
     */
    [[nodiscard]] int descriptor();

    /** Closes the link and connects again; the server is idle afterwards. */
    void reconnect();

    /** What the server reported about itself when it was last identified. */
    [[nodiscard]] const server_info &server() const noexcept;

    /** Identifies the server again. */
    const server_info &identify();

    /**
     * Checks that the server answers, and reads its clock.
     *
     * @param handler  called for the frames that arrive before the answer; if empty, they are dropped
     * @return nothing if the server has no clock or does not report it
     */
    std::optional<clock_reading> ping(const frame_handler &handler = {});

    /**
     * Asks for the server's clock without waiting. Whichever function of this object meets the answer keeps
     * it for take_clock(). Not while clock_asked().
     */
    void ask_clock();

    /**
     * Whether the answer to ask_clock() has not come yet. It never does if it was damaged on the way; if the
     * question was, the server reports an error instead, which ends the question, too.
     */
    [[nodiscard]] bool clock_asked() const noexcept;

    /** No longer waits for the answer to ask_clock(); if it comes nevertheless, it is dropped. */
    void give_up_clock() noexcept;

    /** The answer to ask_clock(), once; nothing if there is none, or the server does not report its clock. */
    std::optional<clock_reading> take_clock() noexcept;

    /**
     * Returns the statistics of the server, as it sends them.
     *
     * @param handler  called for the frames that arrive before the answer; if empty, they are dropped
     */
    nlohmann::json stats(const frame_handler &handler = {});

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
     * Waits for the next frame of the stream, which has the time since its first frame and the number of
     * missing frames.
     *
     * @param timeout  how long to wait
     * @return the frame, or nothing if none arrived in time
     */
    std::optional<frame> receive_frame(std::chrono::milliseconds timeout);

    /**
     * Stops the stream of frames.
     *
     * @param handler  called for the frames that arrive before the answer; if empty, they are dropped
     * @param timeout  how long to wait for the answer; if not given, as long as the server may need
     * @return how many frames of the stream the server left out because they were late; 0 if not reported
     */
    uint64_t stop(const frame_handler &handler = {}, std::optional<std::chrono::milliseconds> timeout = {});

    /** Measures one frame. Only allowed while there is no stream. */
    frame single_frame();

    /** Ends the session in any state; drops all messages that arrive before the answer. */
    void end();

    /** Like end(), but waits no longer than a given time. */
    void end(std::chrono::milliseconds timeout);

    /** Ends the session if the server answers within a second, for programs that were asked to stop. */
    void end_promptly();

    /**
     * Makes the server send its log.
     *
     * @param level    least severe level to send: "OFF", "ERROR", "WARNING", "INFO", "VERBOSE" or "DEBUG"
     * @param handler  called for every line, by those functions of this object that receive messages
     */
    void forward_log(std::string_view level, log_handler handler);

    /**
     * Changes the baud rate of a serial line at both ends. If the server does not answer at the new baud
     * rate, this end returns to the old one, and the server does so within two seconds.
     *
     * @param baudrate  in bits per second, at most server().max_baudrate
     */
    void set_baudrate(uint32_t baudrate);

    /** Sends bytes unchanged. For tests of a server. */
    void send(std::string_view text);

    /**
     * Waits for the next message of any kind except a log line. For tests of a server.
     *
     * @param timeout  how long to wait
     * @return the message, or nothing if none arrived in time
     */
    std::optional<message> receive(std::chrono::milliseconds timeout);

    /** Number of payload bytes still missing from the message that is being received; 0 if there is none. */
    [[nodiscard]] size_t bytes_missing() const noexcept;

    /** Number of bytes of all messages received since connecting. */
    [[nodiscard]] uint64_t bytes_received() const noexcept;

private:
    using time_point = std::chrono::steady_clock::time_point;

    /** How long a function waits. */
    struct waiting_limit
    {
        time_point deadline;
        std::chrono::milliseconds extension; /**< while a message is being received; 0 for none */
    };

    [[nodiscard]] waiting_limit limit_of(std::chrono::milliseconds timeout) const;
    [[nodiscard]] std::chrono::milliseconds time_of_slow_frames() const;
    void wait(const std::function<void()> &action);
    link &connection();
    void transmit(std::string_view bytes, std::chrono::milliseconds timeout);
    void receive_bytes(std::chrono::milliseconds timeout);
    void end(waiting_limit limit);
    void send_command(const nlohmann::json &command);
    void find_server();
    void send_end(std::chrono::milliseconds timeout);
    std::chrono::milliseconds repeat_end(std::chrono::milliseconds left);
    std::optional<message> poll_message(time_point deadline);
    std::optional<message> take_message();
    std::optional<frame> take_frame();
    template <typename take_t> auto poll(time_point deadline, take_t take) -> decltype(take());
    message next_message(waiting_limit &limit, const std::string &awaited);
    message next_answer(waiting_limit &limit, const std::string &awaited);
    bool take_late_answer(const message &received);
    [[noreturn]] void give_up(const std::string &awaited) const;
    void complete(frame &received);
    bool deliver_log(const nlohmann::json &header);
    bool keep_clock(const nlohmann::json &header);
    nlohmann::json request(const nlohmann::json &command, const frame_handler &handler = {},
                           std::optional<std::chrono::milliseconds> timeout = {});
    nlohmann::json await_answer(const std::string &command, const frame_handler &handler,
                                waiting_limit limit);
    void check_answer(const message &received, const std::string &command) const;
    frame decode(const message &received) const;
    std::optional<frame> poll_frame(std::chrono::milliseconds timeout);

    link_factory open_links_;
    client_timeouts timeouts_;
    std::shared_ptr<event_loop> loop_;
    std::shared_ptr<bool> cancel_requested_ = std::make_shared<bool>(false); /**< set by work of the loop */
    std::unique_ptr<link> link_;
    message_parser parser_;
    std::vector<std::byte> first_bytes_; /**< received since connecting */
    bool understood_ = false;            /**< a message was received since connecting */
    server_info server_;
    std::shared_ptr<const session_metadata> metadata_;
    std::shared_ptr<frame_reader> frames_; /**< of the session */
    double frame_rate_ = 0.0;              /**< nominal, of the session; 0 if unknown */
    loss_counter losses_{0.0};
    tick_clock stream_clock_{0.0};
    uint64_t damaged_ = 0;                  /**< messages of the stream damaged since the last frame */
    bool streaming_ = false;                /**< the answer to a command may follow frames */
    time_point ping_sent_;                  /**< when the last one was sent */
    std::optional<time_point> clock_asked_; /**< when the question was sent that is not answered */
    bool clock_given_up_ = false;           /**< answers to earlier questions may still arrive */
    std::optional<clock_reading> clock_;    /**< for take_clock() */
    nlohmann::json awaited_; /**< command whose answer may still arrive after a damaged message */
    log_handler on_log_;
    std::optional<time_point> end_repetition_; /**< when to send "end" again, if at all */
    unsigned unanswered_ends_ = 0;             /**< the server may not have received all of them */
};

} // namespace vantor

#endif
