/** @file
 * A conversation with a server.
 */
#include "vantor/client.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "client/frame_reader.h"
#include "client/json_members.h"
#include "client/message_kinds.h"
#include "client/time_left.h"
#include "vantor/blocking_work.h"
#include "vantor/configuration.h"

namespace vantor
{
namespace
{

/** How long a program that was asked to stop waits for the end of the session. */
constexpr std::chrono::milliseconds short_time{1000};

/** The number of answers to "end" that may still arrive, if unknown. */
constexpr unsigned any_number = std::numeric_limits<unsigned>::max();

} // namespace

client::client(const address &where, client_timeouts timeouts, const std::shared_ptr<event_loop> &loop)
    : client([where, timeouts, loop] { return open_link(where, timeouts.connect, loop); }, timeouts, loop)
{
}

client::client(link_factory open_links, client_timeouts timeouts, std::shared_ptr<event_loop> loop)
    : open_links_(std::move(open_links)), timeouts_(timeouts), loop_(std::move(loop))
{
    reconnect();
}

void client::cancel()
{
    loop_->post([requested = cancel_requested_] { *requested = true; });
}

int client::descriptor()
{
    return connection().descriptor();
}

void client::reconnect()
{
    if (link_)
    {
        // A serial line sends what is left, and a private server may take a while to exit.
        run_beside(*loop_, [this] { link_.reset(); });
    }
    wait([this] { link_ = open_links_(); });
    parser_.reset();
    first_bytes_.clear();
    understood_ = false;
    frame_rate_ = 0.0;
    unanswered_ends_ = 0;
    clock_asked_.reset();
    clock_.reset();
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

std::optional<clock_reading> client::ping(const frame_handler &handler)
{
    const nlohmann::json command = {{"command", "ping"}};
    if (awaited_ != command)
    {
        ping_sent_ = loop_->now();
    }
    const auto answer = request(command, handler);
    return read_clock(answer, {ping_sent_, loop_->now()});
}

void client::ask_clock()
{
    clock_asked_ = loop_->now();
    send_command({{"command", "ping"}});
}

bool client::clock_asked() const noexcept
{
    return clock_asked_.has_value();
}

void client::give_up_clock() noexcept
{
    clock_given_up_ = true;
    clock_asked_.reset();
}

std::optional<clock_reading> client::take_clock() noexcept
{
    return std::exchange(clock_, std::nullopt);
}

nlohmann::json client::stats(const frame_handler &handler)
{
    return request({{"command", "stats"}}, handler);
}

std::shared_ptr<const session_metadata> client::configure(const nlohmann::json &configuration)
{
    send_command({{"command", "configure"}, {"configuration", configuration}});
    waiting_limit limit = limit_of(timeouts_.configure);
    const auto received = next_answer(limit, "session metadata");
    throw_on_error(received);
    auto metadata = decode_metadata(received.header);
    check_requested(metadata, configuration);
    set_distances(metadata, configuration);
    metadata_ = std::make_shared<const session_metadata>(std::move(metadata));
    frames_ = std::make_shared<frame_reader>(metadata_);
    frame_rate_ = nominal_frame_rate(configuration, *metadata_, server_);
    parser_.expect_frames(metadata_->frame_length() * sizeof(sample));
    return metadata_;
}

void client::start()
{
    request({{"command", "start"}});
    losses_ = loss_counter(frame_rate_ > 0.0 ? server_.ticks_per_second / frame_rate_ : 0.0);
    stream_clock_ = tick_clock(server_.ticks_per_second);
    damaged_ = 0;
    streaming_ = true;
}

std::optional<frame> client::receive_frame(std::chrono::milliseconds timeout)
try
{
    auto received = poll_frame(timeout);
    if (received)
    {
        complete(*received);
    }
    return received;
}
catch (const bad_message &)
{
    ++damaged_;
    throw;
}

uint64_t client::stop(const frame_handler &handler, std::optional<std::chrono::milliseconds> timeout)
{
    const auto answer = request({{"command", "stop"}}, handler, timeout);
    streaming_ = false;
    constexpr auto most = std::numeric_limits<int64_t>::max();
    const auto left_out = answer.find("frames_left_out");
    return left_out == answer.end()
               ? 0
               : static_cast<uint64_t>(to_integer(*left_out, "frames_left_out", 0, most));
}

frame client::single_frame()
{
    send_command({{"command", "frame"}});
    waiting_limit limit = limit_of(timeouts_.frame + time_of_slow_frames());
    const auto received = next_answer(limit, "frame");
    throw_on_error(received);
    return decode(received);
}

void client::end()
{
    end(limit_of(timeouts_.answer + time_of_slow_frames()));
}

void client::end(std::chrono::milliseconds timeout)
{
    end(waiting_limit{.deadline = loop_->now() + timeout, .extension = {}});
}

void client::end_promptly()
{
    try
    {
        end(short_time);
    }
    catch (const error &) // NOLINT(bugprone-empty-catch): the server does not answer
    {
    }
    catch (const cancelled &) // NOLINT(bugprone-empty-catch): even a second is too long
    {
    }
}

void client::forward_log(std::string_view level, log_handler handler)
{
    on_log_ = std::move(handler);
    request({{"command", "log"}, {"level", level}});
}

void client::set_baudrate(uint32_t baudrate)
{
    request({{"command", "baudrate"}, {"baudrate", baudrate}});
    const auto former = connection().set_baudrate(baudrate);
    try
    {
        ping();
    }
    catch (...)
    {
        // The server also returns to it.
        connection().set_baudrate(former);
        throw;
    }
}

void client::send(std::string_view text)
{
    transmit(text, timeouts_.answer);
}

std::optional<message> client::receive(std::chrono::milliseconds timeout)
{
    return poll_message(loop_->now() + timeout);
}

size_t client::bytes_missing() const noexcept
{
    return parser_.missing();
}

uint64_t client::bytes_received() const noexcept
{
    return parser_.position();
}

} // namespace vantor
