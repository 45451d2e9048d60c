/** @file
 * The messages that viewers receive beside frames; host/view/page/types.d.ts describes them.
 */
#ifndef VANTOR_VIEW_MESSAGES_H
#define VANTOR_VIEW_MESSAGES_H

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/configuration_fault.h"
#include "vantor/plan.h"
#include "vantor/session_description.h"
#include "vantor/truth.h"

namespace vantor
{

/** What is shown: a server, or a recording. */
enum class view_kind
{
    server,
    recording,
};

/**
 * The first message to each viewer, without what differs between viewers.
 *
 * @param kind    what is shown
 * @param name    its name
 * @param source  where it is: an address or a directory
 */
nlohmann::ordered_json hello_message(view_kind kind, const std::string &name, const std::string &source);

/**
 * Announces a session.
 *
 * @param number   differs from that of all earlier sessions
 * @param session  its description, with the configuration that a person sees
 */
nlohmann::ordered_json session_message(uint64_t number, const session_description &session);

/** A line of the log; the level is "error", "warning", "info" or "verbose". */
nlohmann::ordered_json log_message(const std::string &level, const std::string &text);

/**
 * The answer to a request to check a configuration: its faults, or else its figures.
 *
 * @param session  the present one, whose figures the server has reported; null if there is none
 * @throws request_error if the request has no number or no configuration
 */
nlohmann::ordered_json checked_message(const nlohmann::json &request, const session_description *session);

/** Where the targets are that simulated sensors see in the next frame: a list for each item, null if unknown.
 */
nlohmann::ordered_json truth_message(const frame_truth &truth);

/** A request was executed. */
nlohmann::ordered_json done_message(const std::string &type, const std::string &text);

/** A request was not executed. */
nlohmann::ordered_json failed_message(const std::string &type, const std::string &message);

/** Faults of a configuration, as viewers receive them. */
nlohmann::ordered_json view_faults(const fault_list &faults);

/**
 * What a board uses of a memory, from the statistics of its server; null unless they are numbers of bytes.
 *
 * @param statistics  as received: a server can send anything
 * @param name        of the memory
 * @param figures     the names of the numbers
 */
nlohmann::ordered_json usage_in(const nlohmann::json &statistics, const std::string &name,
                                const std::vector<std::string> &figures);

/** Says how many lines of the log a viewer has not received. */
std::string lost_lines_text(uint64_t lines);

/** A message as text. Bytes that are not UTF-8 (file names may contain them) are replaced. */
std::string message_text(const nlohmann::ordered_json &message);

} // namespace vantor

#endif
