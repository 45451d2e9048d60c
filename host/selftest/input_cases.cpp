/** @file
 * Self-test: wrong input. The server answers each with the right error, and continues to work.
 */
#include <algorithm>

#include "selftest/selftest.h"

namespace vantor::selftest
{
namespace
{

using namespace std::string_literals;
using std::chrono::milliseconds;

/** What to check if a server does not answer wrong input as it should. */
constexpr const char *look_at_bytes = "whether the port passes on every byte unchanged";

/** A case that sends wrong input, which must be refused. */
selftest_case wrong_input(const std::string &name, const std::string &input, const std::string &code)
{
    return {name, look_at_bytes, [input, code](bench &on) {
                on.refuse(input, code);
                on.ping();
            }};
}

/** A command with too many nested arrays. */
std::string deep_nesting()
{
    // Levels of arrays; the command adds one level.
    constexpr size_t depth = 16;
    return "{\"command\":" + std::string(depth, '[') + std::string(depth, ']') + "}\n";
}

/** Length at which the test gives up: no board has that much memory for a line. */
constexpr size_t longest_line = size_t{1} << 18U;

/** Number of bytes to send at once. */
constexpr size_t piece_size = 1024;

/** How long to wait for more messages after the server has refused the line. */
constexpr milliseconds pause_after_line{300};

/** Sends a line without an end until the server refuses it, no faster than the server receives. */
std::optional<message> send_until_refused(bench &on)
{
    const auto pause_between_pieces = std::max(on.time_to_receive(piece_size), milliseconds(1));
    for (size_t sent = 0; sent < longest_line; sent += piece_size)
    {
        on.send(std::string(piece_size, 'x'));
        if (auto received = on.receive(pause_between_pieces))
        {
            return received;
        }
    }
    return on.receive(on.timeouts().answer);
}

void line_too_long(bench &on)
{
    const auto refused = send_until_refused(on);
    const std::string expected = "the error \"line_too_long\"";
    check(refused.has_value(), expected,
          "nothing after "s.append(std::to_string(longest_line)).append(" bytes"));
    check(refused->header.value("code", nlohmann::json()) == "line_too_long", expected,
          describe(refused->header));
    const auto more = on.receive(pause_after_line);
    check(!more, "only one error for the line", more ? describe(more->header) : std::string());
    on.send("\n");
    on.ping();
}

void empty_lines(bench &on)
{
    on.send("\n\r\n\n");
    on.ping();
}

void wrong_states(bench &on)
{
    const std::string configure =
        nlohmann::json({{"command", "configure"}, {"configuration", small_session(on)}}).dump() + "\n";
    for (const char *command : {"start", "frame", "stop"})
    {
        on.refuse("{\"command\":\""s + command + "\"}\n", "wrong_state");
    }
    on.configure(small_session(on));
    on.refuse(configure, "wrong_state");
    on.refuse("{\"command\":\"stop\"}\n", "wrong_state");
    // The session still exists.
    on.measure();
    on.execute({{"command", "end"}});
}

void refused_configurations(bench &on)
{
    auto configuration = small_session(on);
    configuration["groups"][0][0]["config"]["colour"] = 1;
    const nlohmann::json command = {{"command", "configure"}, {"configuration", configuration}};
    for (int i = 0; i < 3; ++i)
    {
        on.refuse(command.dump() + "\n", "bad_config");
    }
    on.configure(small_session(on));
    on.measure();
    on.execute({{"command", "end"}});
}

} // namespace

std::vector<selftest_case> input_cases()
{
    return {
        wrong_input("text that is not JSON is refused", "this is not JSON\n", "bad_json"),
        wrong_input("an incomplete command is refused", "{\"command\":\"pi\n", "bad_json"),
        wrong_input("zero bytes are refused", "\0\0\0{\"command\":\"ping\"}\n"s, "bad_json"),
        wrong_input("bytes that are not UTF-8 are refused", "{\"command\":\"\x80\xFF\"}\n", "bad_json"),
        wrong_input("two commands on one line are refused", "{\"command\":\"ping\"}{\"command\":\"ping\"}\n",
                    "trailing_text"),
        wrong_input("a command that is nested too deeply is refused", deep_nesting(), "nesting_too_deep"),
        wrong_input("a document that is not a command is refused", "[1,2,3]\n", "bad_command"),
        wrong_input("an unknown command is refused", "{\"command\":\"explode\"}\n", "unknown_command"),
        wrong_input("an unknown member is refused", "{\"command\":\"ping\",\"loud\":true}\n", "bad_argument"),
        {"a line that is too long is refused", "size and use of the port's line buffer", line_too_long},
        {"empty lines are ignored", look_at_bytes, empty_lines},
        {"commands in the wrong state are refused", "the server's log", wrong_states},
        {"after a refused configuration, the next one works", "memory, and the server's log",
         refused_configurations},
    };
}

} // namespace vantor::selftest
