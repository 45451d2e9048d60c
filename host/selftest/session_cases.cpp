/** @file
 * Self-test: interrupted sessions, lost hosts, memory.
 */
#include "selftest/selftest.h"

#include <array>

namespace vantor::selftest
{
namespace
{

using nlohmann::json;

/** Runs a short session. */
void short_session(bench &on)
{
    on.configure(small_session(on));
    on.measure();
    on.execute({{"command", "end"}});
}

void end_while_streaming(bench &on)
{
    for (int i = 0; i < 3; ++i)
    {
        on.configure(small_session(on));
        on.execute({{"command", "start"}});
        on.next_frame();
        on.end_stream("end");
        // No frame must arrive before this answer.
        on.ping();
    }
}

void configure_while_streaming(bench &on)
{
    const json command = {{"command", "configure"}, {"configuration", small_session(on)}};
    on.configure(small_session(on));
    on.execute({{"command", "start"}});
    on.send(command.dump() + "\n");
    const std::string awaited = "the error \"wrong_state\"";
    const auto received = on.next_after_frames(awaited).answer;
    check(received.header.value("code", json()) == "wrong_state", awaited, describe(received.header));
    // The stream continues.
    on.next_frame();
    on.end_stream("stop");
}

/** Whether a server still serves the previous host. */
bool is_busy(const message &received)
{
    return received.header.value("code", json()) == "busy";
}

/** Receives the first message over a link, within the answer time-out. */
message first_message(const bench &on, link &line, const std::string &awaited)
{
    const auto deadline = on.after(on.timeouts().answer);
    message_parser parser;
    std::array<std::byte, 4096> buffer{};
    while (true)
    {
        const auto count = line.read_some(buffer, on.time_until(deadline));
        parser.feed(std::span(buffer).first(count));
        if (auto received = parser.next())
        {
            return std::move(*received);
        }
        check(on.time_until(deadline).count() > 0, awaited, "no message" + within(on.timeouts().answer));
    }
}

/** Sends "stop" over a new link and returns the first message. */
message answer_to_stop(bench &on, const std::string &awaited)
{
    constexpr std::string_view command = "{\"command\":\"stop\"}\n";
    const auto line = on.open_link();
    line->write(std::as_bytes(std::span(command)), on.timeouts().answer);
    return first_message(on, *line, awaited);
}

/** Checks that the next host finds no session. */
void check_no_session(bench &on)
{
    const std::string awaited =
        "the error \"wrong_state\" to \"stop\", since the session must end when its host disconnects";
    auto received = answer_to_stop(on, awaited);
    for (int attempt = 1; attempt < attempts_while_busy && is_busy(received); ++attempt)
    {
        received = answer_to_stop(on, awaited);
    }
    check(received.header.value("code", json()) == "wrong_state", awaited, describe(received.header));
}

/** Disconnects during a stream. */
void disconnect_while_streaming(bench &on)
{
    on.configure(small_session(on));
    on.execute({{"command", "start"}});
    on.next_frame();
    on.disconnect();
}

void lost_host(bench &on)
{
    if (!on.traits().closes_with_host || on.server().max_baudrate > 0)
    {
        throw case_skipped("on this link the server cannot detect that its host has disconnected");
    }
    disconnect_while_streaming(on);
    check_no_session(on);
}

void returning_host(bench &on)
{
    for (int i = 0; i < 3; ++i)
    {
        disconnect_while_streaming(on);
        on.connect();
        short_session(on);
    }
}

/** The memory usage while idle. */
memory_use memory_at_rest(bench &on)
{
    const auto memory = decode_server_info(on.execute({{"command", "identify"}}).header).memory;
    if (!memory)
    {
        throw case_skipped("the server does not report its memory");
    }
    return *memory;
}

void memory(bench &on)
{
    constexpr int sessions = 20;
    const auto before = memory_at_rest(on);
    for (int i = 0; i < sessions; ++i)
    {
        short_session(on);
    }
    const auto after = memory_at_rest(on);
    const auto text = [](const memory_use &use) {
        return std::to_string(use.live) + " bytes in use, largest free block " +
               std::to_string(use.largest_free);
    };
    check(after.live == before.live && after.largest_free == before.largest_free,
          text(before) + ", as before", text(after));
}

} // namespace

std::vector<selftest_case> session_cases()
{
    return {
        {"\"end\" stops a running stream", "whether the server receives its input between two frames",
         end_while_streaming},
        {"\"configure\" is refused during a stream",
         "whether the server receives its input between two frames", configure_while_streaming},
        {"a session ends when its host disconnects", "whether the port calls zet_vantor_server_link_lost",
         lost_host},
        {"a host can reconnect", "whether the link can be opened again, and drops a half-sent message",
         returning_host},
        {"20 sessions do not leak memory", "the allocator, and what the port allocates for a session",
         memory},
    };
}

} // namespace vantor::selftest
