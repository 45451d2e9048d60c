/** @file
 * How streams and subjects of a NATS server are called, and what they say.
 */
#ifndef VANTOR_NATS_NAMES_H
#define VANTOR_NATS_NAMES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantor
{

/** Names of what belongs to a site. */
struct nats_names
{
    std::string frames_stream; /**< the stream with the batches */
    std::string states_stream; /**< the stream with the states of the boards */
    std::string prefix;        /**< of subjects: followed by the name of a board and ".frames" or ".state" */

    /** @param site  its name */
    explicit nats_names(const std::string &site);

    /** The subject of the batches of a board. */
    [[nodiscard]] std::string frames_of(const std::string &board) const
    {
        return prefix + board + ".frames";
    }

    /** The subject of the state of a board. */
    [[nodiscard]] std::string state_of(const std::string &board) const
    {
        return prefix + board + ".state";
    }
};

/** The site that has its states in a stream; nothing if it is another stream. */
std::optional<std::string> site_of_states(std::string_view stream);

/** Whether a name comes before another one in a list for people: "gate-2" before "gate-10". */
bool comes_before(std::string_view name, std::string_view other) noexcept;

/** The number that follows the prefix of a subject; nothing if none does. */
std::optional<uint64_t> number_behind(std::string_view prefix, std::string_view subject);

} // namespace vantor

#endif
