/** @file
 * The test bench of the self-test: a server, and functions to exchange messages with it.
 */
#include "selftest/bench.h"

#include <algorithm>
#include <utility>

#include "client/time_left.h"

namespace vantor::selftest
{
namespace
{

/** Maximum length of a message in the report. */
constexpr size_t longest_description = 200;

/** States that a server sent nothing. */
std::string silence(std::chrono::milliseconds timeout)
{
    return "nothing" + within(timeout);
}

} // namespace

void check(bool condition, const std::string &expected, const std::string &got)
{
    if (!condition)
    {
        throw case_failed(expected, got);
    }
}

std::string within(std::chrono::milliseconds timeout)
{
    return " within " + std::to_string(timeout.count()) + " ms";
}

std::string describe(const nlohmann::json &value)
{
    auto text = value.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
    if (text.size() > longest_description)
    {
        text = text.substr(0, longest_description) + "...";
    }
    return text;
}

bench::bench(client::link_factory open_links, link_traits traits, client_timeouts timeouts,
             std::shared_ptr<event_loop> loop)
    : open_links_(std::move(open_links)), traits_(traits), timeouts_(timeouts), loop_(std::move(loop))
{
}

void bench::connect()
{
    disconnect();
    // Before the first connection, the server is busy only if it serves another host.
    const int attempts = server_ ? attempts_while_busy : 1;
    for (int attempt = 1; !host_; ++attempt)
    {
        try
        {
            open_host();
        }
        catch (const server_error &refusal)
        {
            if (refusal.code() != "busy" || attempt == attempts)
            {
                throw;
            }
        }
    }
    server_ = host_->server();
}

/** Connects once. Forgets the clock readings, since it may be a different server than before. */
void bench::open_host()
{
    first_reading_.reset();
    const auto open = [this] {
        auto opened = open_links_();
        line_ = opened.get();
        return opened;
    };
    host_.emplace(open, timeouts_, loop_);
}

void bench::disconnect()
{
    host_.reset();
    line_ = nullptr;
}

void bench::leave()
{
    if (host_)
    {
        host_->end_promptly();
    }
}

void bench::rest()
{
    if (host_)
    {
        try
        {
            host_->end();
            return;
        }
        catch (const error
                   &) // NOLINT(bugprone-empty-catch): left over from a case; reconnecting helps or throws
        {
        }
    }
    connect();
}

const server_info &bench::server() const
{
    return server_.value();
}

double bench::require_ticks() const
{
    constexpr double least_ticks_per_second = 1000;
    if (!(server().ticks_per_second >= least_ticks_per_second))
    {
        throw case_skipped("the server does not have a clock that is fast enough");
    }
    return server().ticks_per_second;
}

std::unique_ptr<link> bench::open_link() const
{
    return open_links_();
}

bench::time_point bench::after(std::chrono::milliseconds span) const
{
    return loop_->now() + span;
}

std::chrono::milliseconds bench::time_until(time_point moment) const
{
    return time_left(moment, loop_->clock());
}

const std::vector<unsigned> &bench::sensors() const
{
    const auto &connected = server().connected_sensors;
    if (connected.empty())
    {
        throw case_skipped("no sensor is connected");
    }
    return connected;
}

void bench::send(std::string_view bytes)
{
    bytes_sent_ += bytes.size();
    host().send(bytes);
}

std::optional<message> bench::receive(std::chrono::milliseconds timeout)
{
    return host().receive(timeout);
}

message bench::next(const std::string &awaited)
{
    auto received = receive(timeouts_.answer);
    if (!received)
    {
        throw case_failed(awaited, silence(timeouts_.answer));
    }
    return std::move(*received);
}

message bench::execute(const nlohmann::json &command)
{
    send(command.dump() + "\n");
    const std::string awaited = "the answer \"ok\" to " + describe(command);
    auto received = next(awaited);
    const auto &header = received.header;
    check(header["status"] == "ok" && header.value("command", nlohmann::json()) == command["command"] &&
              header["payload_size"] == 0,
          awaited, describe(header));
    return received;
}

void bench::refuse(std::string_view line, const std::string &code)
{
    send(line);
    const std::string awaited = "the error \"" + code + "\"";
    const auto header = next(awaited).header;
    check(header["status"] == "error" && header.value("code", nlohmann::json()) == code &&
              header["payload_size"] == 0,
          awaited, describe(header));
    check(header.contains("message") && header["message"].is_string() && header["message"] != "",
          awaited + " with a string \"message\"", describe(header));
}

message bench::statistics()
{
    const auto asked = loop_->now();
    auto received = execute({{"command", "stats"}});
    last_reading_.reset();
    if (const auto uptime = received.header.find("uptime_s");
        uptime != received.header.end() && uptime->is_number())
    {
        last_reading_ = {.uptime = std::chrono::duration<double>(uptime->get<double>()),
                         .asked = asked,
                         .answered = loop_->now()};
        first_reading_ = first_reading_.value_or(*last_reading_);
    }
    return received;
}

clock_reading bench::read_clock()
{
    const auto received = statistics();
    check(last_reading_.has_value(), "\"uptime_s\": a number", describe(received.header));
    return *last_reading_;
}

void bench::ping()
{
    execute({{"command", "ping"}});
}

std::chrono::milliseconds bench::time_to_receive(size_t size)
{
    auto least = std::chrono::milliseconds::max();
    for (int i = 0; i < 3; ++i)
    {
        const auto begin = loop_->now();
        ping();
        const auto middle = loop_->now();
        send(std::string(size, ' '));
        ping();
        least = std::min(
            least, std::chrono::ceil<std::chrono::milliseconds>((loop_->now() - middle) - (middle - begin)));
    }
    return least;
}

const session_metadata &bench::configure(const nlohmann::json &configuration)
{
    send(nlohmann::json({{"command", "configure"}, {"configuration", configuration}}).dump() + "\n");
    const auto received = receive(timeouts_.configure);
    const std::string awaited = "session metadata";
    check(received.has_value(), awaited, silence(timeouts_.configure));
    check(received->header["status"] == "ok" && received->header.contains("metadata"), awaited,
          describe(received->header));
    metadata_ = std::make_shared<const session_metadata>(decode_metadata(received->header));
    ticks_.clear();
    return *metadata_;
}

frame bench::measure()
{
    send("{\"command\":\"frame\"}\n");
    return next_frame();
}

frame bench::next_frame()
{
    const auto received = receive(timeouts_.frame);
    check(received.has_value(), "a frame", silence(timeouts_.frame));
    return check_frame(*received);
}

bool bench::is_frame(const message &received)
{
    return received.header.contains("result_info");
}

frame bench::check_frame(const message &received)
{
    check(is_frame(received) && received.header["status"] == "ok", "a frame", describe(received.header));
    auto decoded = decode_frame(received, metadata_);
    check_ticks(decoded);
    return decoded;
}

/** Checks that no tick is before the tick of the same item in the previous frame. */
void bench::check_ticks(const frame &received)
{
    if (!(server().ticks_per_second > 0.0))
    {
        return;
    }
    std::vector<uint32_t> ticks;
    for (const auto &item : received.items())
    {
        ticks.push_back(item.tick);
    }
    for (size_t i = 0; i < ticks_.size(); ++i)
    {
        // Correct also when the tick wraps around.
        const uint32_t step = ticks[i] - ticks_[i];
        check(step <= INT32_MAX, "a tick that is not earlier than the previous one",
              std::to_string(ticks[i]) + " after " + std::to_string(ticks_[i]));
    }
    ticks_ = std::move(ticks);
}

bench::stream_end bench::next_after_frames(const std::string &awaited)
{
    const auto deadline = after(timeouts_.answer);
    for (unsigned frames = 0;; ++frames)
    {
        auto received = receive(time_until(deadline));
        if (received && !is_frame(*received))
        {
            return {.answer = std::move(*received), .frames = frames};
        }
        check(received && time_until(deadline).count() > 0, awaited,
              (frames == 0 ? "nothing" : "only frames") + within(timeouts_.answer));
        check_frame(*received);
    }
}

unsigned bench::end_stream(const std::string &command)
{
    send(nlohmann::json({{"command", command}}).dump() + "\n");
    const std::string awaited = "the answer \"ok\" to \"" + command + "\"";
    const auto [answer, frames] = next_after_frames(awaited);
    check(answer.header["status"] == "ok" && answer.header.value("command", nlohmann::json()) == command,
          awaited, describe(answer.header));
    return frames;
}

void bench::forward_log(const std::string &level)
{
    host().forward_log(level, [this](const log_line &line) { log_.push_back(line); });
}

std::vector<log_line> bench::take_log()
{
    return std::exchange(log_, {});
}

client &bench::host()
{
    return host_.value();
}

nlohmann::json small_item(unsigned sensor)
{
    return {{"sensor_id", sensor},
            {"config", {{"start_point", 80}, {"num_points", 8}, {"step_length", 4}, {"hwaas", 4}}}};
}

nlohmann::json small_session(bench &on)
{
    return {{"groups", nlohmann::json::array({nlohmann::json::array({small_item(on.sensors().front())})})}};
}

} // namespace vantor::selftest
