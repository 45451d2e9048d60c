/** @file
 * What the parts of the client know about messages.
 */
#ifndef VANTOR_MESSAGE_KINDS_H
#define VANTOR_MESSAGE_KINDS_H

#include <cstdint>
#include <optional>
#include <string>

#include "client/json_members.h"
#include "vantor/board_clock.h"
#include "vantor/errors.h"
#include "vantor/message_parser.h"

namespace vantor
{

/** Whether a message contains a frame. */
inline bool is_frame(const message &received)
{
    return received.header.contains("result_info");
}

/** Whether a message answers "end". */
inline bool answers_end(const message &received)
{
    return received.header.value("command", nlohmann::json()) == "end";
}

/** Whether a message answers "ping". */
inline bool answers_ping(const nlohmann::json &header)
{
    return header["status"] == "ok" && header.value("command", nlohmann::json()) == "ping";
}

/** The reading in the answer to "ping"; nothing if the server does not report its clock. */
inline std::optional<clock_reading> read_clock(const nlohmann::json &answer, time_bounds between)
{
    if (!answer.contains("tick"))
    {
        return std::nullopt;
    }
    return clock_reading{between.earliest, between.latest, integer_member<uint32_t>(answer, "tick")};
}

/** Whether the answer to "ping" has a tick of the range that ticks have. */
inline bool has_possible_tick(const nlohmann::json &answer)
{
    const auto tick = answer.find("tick");
    return tick != answer.end() && tick->is_number_unsigned() && *tick <= UINT32_MAX;
}

/** Whether a message is an answer to a command that was damaged on its way. */
inline bool reports_damaged_line(const nlohmann::json &header)
{
    const auto code = header.value("code", nlohmann::json());
    return header["status"] == "error" && (code == "bad_json" || code == "unknown_command" ||
                                           code == "bad_argument" || code == "line_too_long");
}

/** Throws if a message reports an error of the server. */
inline void throw_on_error(const message &received)
{
    if (received.header["status"] == "error")
    {
        throw server_error(text_member(received.header, "code"), text_member(received.header, "message"));
    }
}

/** The name of the answer to a command. */
inline std::string answer_to(const std::string &command)
{
    return "answer to \"" + command + "\"";
}

} // namespace vantor

#endif
