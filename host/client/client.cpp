/** @file
 * A conversation with a server.
 */
#include "vantor/client.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "client/json_members.h"
#include "client/time_left.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

/** Number of bytes to read from the link at once. */
constexpr size_t read_size = 65536;

/** The command that ends a session. The line feed ends a line that an earlier host may have sent in part. */
constexpr std::string_view end_command = "\n{\"command\":\"end\"}\n";

/** Interval at which it is repeated after connecting, until the server answers. */
constexpr std::chrono::milliseconds end_interval{1000};

/** The number of answers to "end" that may still arrive, if unknown. */
constexpr unsigned any_number = std::numeric_limits<unsigned>::max();

/** Whether a message contains a frame. */
bool is_frame(const message &received)
{
    return received.header.contains("result_info");
}

/** Whether a message answers "end". */
bool answers_end(const message &received)
{
    return received.header.value("command", nlohmann::json()) == "end";
}

/** Throws if a message reports an error of the server. */
void throw_on_error(const message &received)
{
    if (received.header["status"] == "error")
    {
        throw server_error(text_member(received.header, "code"), text_member(received.header, "message"));
    }
}

/** A sentence without its full stop, for the reason of bad_message, which adds one. */
std::string without_full_stop(std::string sentence)
{
    if (sentence.ends_with('.'))
    {
        sentence.pop_back();
    }
    return sentence;
}

/** The name of the answer to a command. */
std::string answer_to(const std::string &command)
{
    return "answer to \"" + command + "\"";
}

/** Throws because the expected message did not arrive in time. */
[[noreturn]] void throw_timeout(const std::string &awaited)
{
    throw timeout_error("The server sent no " + awaited +
                        " in time. Check the connection and its baud rate, that no other program uses the "
                        "server, and that the board does not restart (see its log).");
}

} // namespace

client::client(const address &where, client_timeouts timeouts)
    : client([where, timeouts] { return open_link(where, timeouts.connect); }, timeouts)
{
}

client::client(link_factory open_links, client_timeouts timeouts, time_source now)
    : open_links_(std::move(open_links)), timeouts_(timeouts), now_(std::move(now)), buffer_(read_size)
{
    reconnect();
}

void client::reconnect()
{
    link_.reset();
    link_ = open_links_();
    parser_.reset();
    unanswered_ends_ = 0;
    find_server();
    // Includes those of earlier hosts, which a busy server still answers.
    unanswered_ends_ = any_number;
    identify();
    if (server_.protocol_version != protocol_version)
    {
        throw protocol_error("The server uses protocol version " + std::to_string(server_.protocol_version) +
                             " and this host version " + std::to_string(protocol_version) +
                             ": install host and server of the same release.");
    }
}

const server_info &client::server() const noexcept
{
    return server_;
}

const server_info &client::identify()
{
    server_ = decode_server_info(request({{"command", "identify"}}));
    return server_;
}

void client::ping()
{
    request({{"command", "ping"}});
}

nlohmann::json client::stats()
{
    return request({{"command", "stats"}});
}

std::shared_ptr<const session_metadata> client::configure(const nlohmann::json &configuration)
{
    send_command({{"command", "configure"}, {"configuration", configuration}});
    auto deadline = now_() + timeouts_.configure;
    const auto received = next_answer(deadline, "session metadata");
    throw_on_error(received);
    auto metadata = decode_metadata(received.header);
    set_distances(metadata, configuration);
    metadata_ = std::make_shared<const session_metadata>(std::move(metadata));
    frame_rate_ = nominal_frame_rate(configuration, *metadata_, server_);
    parser_.expect_frames(metadata_->frame_length() * sizeof(sample));
    return metadata_;
}

void client::start()
{
    request({{"command", "start"}});
    losses_ = loss_counter(frame_rate_ > 0.0 ? server_.ticks_per_second / frame_rate_ : 0.0);
    stream_clock_ = tick_clock(server_.ticks_per_second);
    damaged_ = false;
}

std::optional<frame> client::receive_frame(std::chrono::milliseconds timeout)
try
{
    auto received = poll_frame(timeout);
    if (received && !received->items().empty())
    {
        const auto tick = received->items().front().tick;
        received->set_missing(losses_.add(tick, std::exchange(damaged_, false)));
        received->set_seconds(stream_clock_.advance(tick), server_.ticks_per_second);
    }
    return received;
}
catch (const bad_message &)
{
    damaged_ = true;
    throw;
}

/** Waits for the next frame of the stream. */
std::optional<frame> client::poll_frame(std::chrono::milliseconds timeout)
{
    const auto received = poll_message(now_() + timeout);
    if (!received)
    {
        return std::nullopt;
    }
    throw_on_error(*received);
    return decode(*received);
}

void client::stop(const frame_handler &handler)
{
    send_command({{"command", "stop"}});
    await_answer("stop", handler);
}

frame client::single_frame()
{
    send_command({{"command", "frame"}});
    auto deadline = now_() + timeouts_.frame;
    const auto received = next_answer(deadline, "frame");
    throw_on_error(received);
    return decode(received);
}

void client::end()
{
    // In a single write: a busy server closes the connection, and a second write would then fail before its
    // message has been read.
    send_end(timeouts_.answer);
    auto deadline = now_() + timeouts_.answer;
    do
    {
        try
        {
            const auto received = next_message(deadline, answer_to("end"));
            if (answers_end(received))
            {
                --unanswered_ends_;
                parser_.expect_frames(std::nullopt);
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
    } while (now_() < deadline);
    throw_timeout(answer_to("end"));
}

void client::forward_log(std::string_view level, log_handler handler)
{
    on_log_ = std::move(handler);
    request({{"command", "log"}, {"level", level}});
}

void client::set_baudrate(uint32_t baudrate)
{
    request({{"command", "baudrate"}, {"baudrate", baudrate}});
    const auto former = link_->set_baudrate(baudrate);
    try
    {
        ping();
    }
    catch (const error &)
    {
        // The server also returns to it.
        link_->set_baudrate(former);
        throw;
    }
}

void client::send(std::string_view text)
{
    link_->write(std::as_bytes(std::span(text)), timeouts_.answer);
}

std::optional<message> client::receive(std::chrono::milliseconds timeout)
{
    return poll_message(now_() + timeout);
}

size_t client::bytes_missing() const noexcept
{
    return parser_.missing();
}

uint64_t client::bytes_received() const noexcept
{
    return parser_.position();
}

/** Sends a command as one line. */
void client::send_command(const nlohmann::json &command)
{
    send(command.dump() + "\n");
}

/** Ends the session, if there is one. Repeats the command, since a server that is starting loses commands. */
void client::find_server()
{
    end_repetition_ = now_() + end_interval;
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
    link_->write(std::as_bytes(std::span(end_command)), timeout);
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
    if (time_left(*end_repetition_, now_).count() == 0)
    {
        end_repetition_ = now_() + end_interval;
        // Otherwise the server is sending already.
        if (parser_.missing() == 0)
        {
            send_end(left);
        }
    }
    return std::min(left, time_left(*end_repetition_, now_));
}

/** Receives the next message that is not a log line; nothing if none arrives in time. */
std::optional<message> client::poll_message(time_point deadline)
{
    bool over = false;
    while (true)
    {
        while (auto received = parser_.next())
        {
            if (!deliver_log(received->header))
            {
                return received;
            }
        }
        if (over)
        {
            return std::nullopt;
        }
        const auto left = time_left(deadline, now_);
        over = left.count() == 0;
        parser_.feed(std::span(buffer_).first(link_->read_some(buffer_, over ? left : repeat_end(left))));
    }
}

/** Like poll_message, but throws if none arrives. Extends the deadline while a message is being received. */
message client::next_message(time_point &deadline, const std::string &awaited)
{
    while (true)
    {
        const auto before = parser_.missing();
        if (auto received = poll_message(deadline))
        {
            return std::move(*received);
        }
        const auto missing = parser_.missing();
        if (missing == 0 || (before != 0 && missing >= before))
        {
            throw_timeout(awaited);
        }
        deadline = now_() + timeouts_.answer;
    }
}

/** Like next_message, but skips answers to earlier "end" commands. */
message client::next_answer(time_point &deadline, const std::string &awaited)
{
    while (true)
    {
        auto received = next_message(deadline, awaited);
        if (!take_late_answer(received))
        {
            return received;
        }
        if (now_() >= deadline)
        {
            throw_timeout(awaited);
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

/** Sends a command and waits for its answer. */
nlohmann::json client::request(const nlohmann::json &command)
{
    send_command(command);
    return await_answer(command["command"], {});
}

/** Waits for the answer to a command; earlier frames are passed to the handler, or dropped. */
nlohmann::json client::await_answer(const std::string &command, const frame_handler &handler)
{
    auto deadline = now_() + timeouts_.answer;
    do
    {
        auto received = next_answer(deadline, answer_to(command));
        throw_on_error(received);
        if (!is_frame(received))
        {
            check_answer(received, command);
            return std::move(received.header);
        }
        if (handler)
        {
            handler(decode(received));
        }
    } while (now_() < deadline);
    throw_timeout(answer_to(command));
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
