/** @file
 * What the parts of the client know about messages.
 */
#ifndef VANTOR_MESSAGE_KINDS_H
#define VANTOR_MESSAGE_KINDS_H

#include <string>

#include "client/json_members.h"
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
