/** @file
 * How a client sends commands, and finds their answers among the messages of the server.
 */
#include <algorithm>
#include <cmath>
#include <utility>

#include "client/frame_reader.h"
#include "client/message_kinds.h"
#include "client/time_left.h"
#include "vantor/client.h"

namespace vantor
{
namespace
{

/** The command that ends a session. The line feed ends a line that an earlier host may have sent in part. */
constexpr std::string_view end_command = "\n{\"command\":\"end\"}\n";

/** Interval at which it is repeated after connecting, until the server answers. */
constexpr std::chrono::milliseconds end_interval{1000};

/** A sentence without its full stop, for the reason of bad_message, which adds one. */
std::string without_full_stop(std::string sentence)
{
    if (sentence.ends_with('.'))
    {
        sentence.pop_back();
    }
    return sentence;
}

/** Number of frames for which the answer to a command may have to wait. */
constexpr double slow_frames = 3.0;

/** Upper limit of their time: an hour, in milliseconds. */
constexpr double longest_time_ms = 3.6e6;

/** The fewest bytes of a payload that must arrive in a time. */
size_t fewest_bytes(std::chrono::milliseconds span)
{
    return static_cast<size_t>(std::max<int64_t>(1, slowest_payload_rate * span.count() / 1000));
}

/** Number of bytes that the report about invalid data shows. */
constexpr size_t bytes_shown = 16;

/** Bytes as hexadecimal numbers, each after a space. */
std::string hexadecimal(std::span<const std::byte> bytes)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const auto byte : bytes)
    {
        text += ' ';
        text += digits[std::to_integer<size_t>(byte >> 4)];
        text += digits[std::to_integer<size_t>(byte & std::byte{15})];
    }
    return text;
}

/** Throws because the expected message did not arrive in time. */
[[noreturn]] void throw_timeout(const std::string &awaited)
{
    throw timeout_error("The server sent no " + awaited +
                        " in time. Check the connection and its baud rate, that no other program uses the "
                        "server, and that the board does not restart (see its log).");
}

} // namespace

/** How long to wait for an answer. Waiting is extended while the payload of a message is being received. */
client::waiting_limit client::limit_of(std::chrono::milliseconds timeout) const
{
    return {.deadline = loop_->now() + timeout, .extension = timeouts_.answer};
}

/** How long some frames of the session take: the server executes most commands between two frames. */
std::chrono::milliseconds client::time_of_slow_frames() const
{
    return frame_rate_ > 0.0 ? std::chrono::milliseconds(
                                   std::lround(std::min(1000.0 * slow_frames / frame_rate_, longest_time_ms)))
                             : std::chrono::milliseconds(0);
}

/** Runs a function of the link, which cancel() can stop. */
void client::wait(const std::function<void()> &action)
{
    const event_loop::cancel_scope scope(*loop_, *cancel_requested_);
    loop_->check_cancelled();
    action();
}

/** The link; throws if the client could not reconnect. */
link &client::connection()
{
    if (!link_)
    {
        throw connection_lost("There is no connection to the server, because reconnecting failed.");
    }
    return *link_;
}

/** Sends bytes unchanged. */
void client::transmit(std::string_view bytes, std::chrono::milliseconds timeout)
{
    wait([&] { connection().write(std::as_bytes(std::span(bytes)), timeout); });
}

/** Sends a command as one line. */
void client::send_command(const nlohmann::json &command)
{
    send(command.dump() + "\n");
}

/** Ends the session, if there is one. Repeats the command, since a server that is starting loses commands. */
void client::find_server()
{
    end_repetition_ = loop_->now() + end_interval;
    try
    {
        end();
    }
    catch (...)
    {
        end_repetition_.reset();
        throw;
    }
    end_repetition_.reset();
}

/** Sends "end". */
void client::send_end(std::chrono::milliseconds timeout)
{
    ++unanswered_ends_;
    // In a single write: a busy server closes the connection, and a second write would then fail before its
    // message has been read.
    transmit(end_command, timeout);
}

/** Ends the session, and waits for the answer. */
void client::end(waiting_limit limit)
{
    // While connecting, the caller has given another command, or none.
    const std::string awaited = end_repetition_ ? "answer" : answer_to("end");
    awaited_ = nullptr;
    streaming_ = false;
    send_end(time_left(limit.deadline, loop_->clock()));
    do
    {
        try
        {
            const auto received = next_message(limit, awaited);
            if (answers_end(received))
            {
                --unanswered_ends_;
                clock_asked_.reset();
                clock_given_up_ = false;
                parser_.expect_frames(std::nullopt);
                frame_rate_ = 0.0;
                return;
            }
            if (received.header.value("code", nlohmann::json()) == "busy")
            {
                throw_on_error(received);
            }
        }
        catch (const bad_message &) // NOLINT(bugprone-empty-catch): earlier messages are dropped
        {
        }
    } while (loop_->now() < limit.deadline);
    give_up(awaited);
}

/**
 * Repeats "end" when it is due.
 *
 * @param left  how long the caller waits
 * @return how long the caller can wait before the next call
 */
std::chrono::milliseconds client::repeat_end(std::chrono::milliseconds left)
{
    if (!end_repetition_)
    {
        return left;
    }
    if (time_left(*end_repetition_, loop_->clock()).count() == 0)
    {
        end_repetition_ = loop_->now() + end_interval;
        // Otherwise the server is sending already.
        if (parser_.missing() == 0)
        {
            send_end(left);
        }
    }
    return std::min(left, time_left(*end_repetition_, loop_->clock()));
}

/** Receives bytes until something can be taken from the parser; nothing if that takes too long. */
template <typename take_t> auto client::poll(time_point deadline, take_t take) -> decltype(take())
{
    bool over = false;
    while (true)
    {
        if (auto taken = take())
        {
            return taken;
        }
        if (over)
        {
            return std::nullopt;
        }
        const auto left = time_left(deadline, loop_->clock());
        over = left.count() == 0;
        receive_bytes(over ? left : repeat_end(left));
    }
}

/** Receives the next message that is not a log line; nothing if none arrives in time. */
std::optional<message> client::poll_message(time_point deadline)
{
    return poll(deadline, [this] { return take_message(); });
}

/** Takes the next message that is not a log line nor answers ask_clock(); nothing if more bytes are needed.
 */
std::optional<message> client::take_message()
{
    while (auto received = parser_.next())
    {
        understood_ = true;
        if (!deliver_log(received->header) && !keep_clock(received->header))
        {
            return received;
        }
    }
    return std::nullopt;
}

/** Waits for the next frame of the stream. */
std::optional<frame> client::poll_frame(std::chrono::milliseconds timeout)
{
    return poll(loop_->now() + timeout, [this] { return take_frame(); });
}

/** Takes the next frame of the stream; nothing if more bytes are needed. */
std::optional<frame> client::take_frame()
{
    if (frames_)
    {
        auto known = frames_->take(parser_);
        if (known || parser_.within_samples())
        {
            return known;
        }
    }
    const auto received = take_message();
    if (!received)
    {
        return std::nullopt;
    }
    throw_on_error(*received);
    auto decoded = decode(*received);
    frames_->learn(parser_, decoded);
    return decoded;
}

/** Passes the bytes that arrive to the parser. */
void client::receive_bytes(std::chrono::milliseconds timeout)
{
    const auto space = parser_.space();
    size_t count = 0;
    wait([&] { count = connection().read_both(space[0], space[1], timeout); });
    // The first bytes are never those of a frame that is received in place.
    const auto shown = space[1].first(std::min({count, space[1].size(), bytes_shown - first_bytes_.size()}));
    first_bytes_.insert(first_bytes_.end(), shown.begin(), shown.end());
    parser_.add(count);
}

/** Throws because the expected message did not arrive in time, or anything but messages. */
void client::give_up(const std::string &awaited) const
{
    if (!understood_ && !first_bytes_.empty() && parser_.missing() == 0)
    {
        throw protocol_error("The data received are not messages of a Vantor server; they start with" +
                             hexadecimal(first_bytes_) +
                             ". The baud rate may be wrong, or it may be another device.");
    }
    throw_timeout(awaited);
}

/** Like poll_message, but throws if none arrives. Extends the deadline while a payload is being received. */
message client::next_message(waiting_limit &limit, const std::string &awaited)
{
    while (true)
    {
        const auto before = parser_.missing();
        if (auto received = poll_message(limit.deadline))
        {
            return std::move(*received);
        }
        const auto missing = parser_.missing();
        const bool slow = before != 0 && missing + fewest_bytes(limit.extension) > before;
        if (missing == 0 || slow || limit.extension.count() == 0)
        {
            give_up(awaited);
        }
        limit.deadline = loop_->now() + limit.extension;
    }
}

/** Like next_message, but skips answers to earlier "end" commands. */
message client::next_answer(waiting_limit &limit, const std::string &awaited)
{
    while (true)
    {
        auto received = next_message(limit, awaited);
        if (!take_late_answer(received))
        {
            return received;
        }
        if (loop_->now() >= limit.deadline)
        {
            give_up(awaited);
        }
    }
}

/**
 * Counts the answer to an "end" that was repeated or abandoned; false if the message is not one. A server
 * that was still starting and received only the end of the line answers "bad_json".
 */
bool client::take_late_answer(const message &received)
{
    if (unanswered_ends_ > 0 && answers_end(received))
    {
        --unanswered_ends_;
        return true;
    }
    if (unanswered_ends_ > 0 && received.header.value("code", nlohmann::json()) == "bad_json")
    {
        return true;
    }
    // Answers arrive in order.
    unanswered_ends_ = 0;
    return false;
}

/** Passes a log line to its handler; false if the message is not a log line. */
bool client::deliver_log(const nlohmann::json &header)
{
    if (header["status"] != "log")
    {
        return false;
    }
    if (on_log_)
    {
        on_log_({.level = text_member(header, "level"),
                 .module = text_member(header, "module"),
                 .text = text_member(header, "message")});
    }
    return true;
}

/** Keeps the answer to ask_clock(), or drops that to a question that was damaged or given up; false if the
 * message is neither. */
bool client::keep_clock(const nlohmann::json &header)
{
    const bool answers = answers_ping(header);
    if (!clock_asked_)
    {
        return answers && clock_given_up_;
    }
    if (!answers && !reports_damaged_line(header))
    {
        return false;
    }
    const time_bounds between = {*clock_asked_, loop_->now()};
    clock_asked_.reset();
    if (answers && has_possible_tick(header))
    {
        clock_ = read_clock(header, between);
    }
    return true;
}

/**
 * Sends a command and waits for its answer; earlier frames are passed to the handler, or dropped. During a
 * stream, a damaged message is hardly the answer: if the call is repeated, it goes on waiting.
 *
 * @param timeout  how long to wait; if not given, as long as the server may need
 */
nlohmann::json client::request(const nlohmann::json &command, const frame_handler &handler,
                               std::optional<std::chrono::milliseconds> timeout)
{
    if (std::exchange(awaited_, nullptr) != command)
    {
        transmit(command.dump() + "\n", timeout.value_or(timeouts_.answer));
    }
    try
    {
        return await_answer(command["command"], handler,
                            timeout ? waiting_limit{.deadline = loop_->now() + *timeout, .extension = {}}
                                    : limit_of(timeouts_.answer + time_of_slow_frames()));
    }
    catch (const bad_message &)
    {
        ++damaged_;
        awaited_ = streaming_ ? command : nlohmann::json();
        throw;
    }
}

/** Waits for the answer to a command; earlier frames are passed to the handler, or dropped. */
nlohmann::json client::await_answer(const std::string &command, const frame_handler &handler,
                                    waiting_limit limit)
{
    do
    {
        auto received = next_answer(limit, answer_to(command));
        throw_on_error(received);
        if (!is_frame(received))
        {
            check_answer(received, command);
            return std::move(received.header);
        }
        if (handler)
        {
            auto decoded = decode(received);
            complete(decoded);
            handler(std::move(decoded));
        }
    } while (loop_->now() < limit.deadline);
    give_up(answer_to(command));
}

/** Sets the time and the number of missing frames of a frame of the stream. */
void client::complete(frame &received)
{
    if (!received.items().empty())
    {
        const auto &first = received.items().front();
        const auto lost = std::exchange(damaged_, 0) + received.missing();
        received.set_missing(losses_.add(first.tick, lost, first.frame_delayed));
        received.set_seconds(stream_clock_.advance(first.tick), server_.ticks_per_second);
    }
}

/** Throws if a message is not the answer to a command. */
void client::check_answer(const message &received, const std::string &command) const
{
    if (received.header.value("command", nlohmann::json()) != command)
    {
        throw protocol_error("The server sent another message instead of the answer to \"" + command +
                             "\": another program may be using the same link.");
    }
}

/** Decodes a message as a frame of the current session. */
frame client::decode(const message &received) const
{
    if (!metadata_ || !is_frame(received))
    {
        throw protocol_error(
            "The server sent a message that is not a frame of this session: another program may "
            "be using the same link.");
    }
    try
    {
        return decode_frame(received, metadata_);
    }
    catch (const protocol_error &fault)
    {
        throw bad_message(received.position, without_full_stop(fault.what()));
    }
}

} // namespace vantor
