/** @file
 * How streams and subjects of a NATS server are called, and what they say.
 */
#include "bridge/nats_names.h"

#include <charconv>

#include "bridge/batch.h"

namespace vantor
{
namespace
{

/** What the names of all streams begin with, and those of streams with states end with. */
constexpr std::string_view stream_begin = "vantor-";
constexpr std::string_view states_end = "-states";

} // namespace

nats_names::nats_names(const std::string &site)
    : frames_stream(std::string(stream_begin) + site + "-frames"),
      states_stream(std::string(stream_begin) + site + std::string(states_end)),
      prefix("vantor." + site + ".")
{
}

std::optional<std::string> site_of_states(std::string_view stream)
{
    if (!stream.starts_with(stream_begin) || !stream.ends_with(states_end))
    {
        return std::nullopt;
    }
    stream.remove_prefix(stream_begin.size());
    if (stream.size() <= states_end.size())
    {
        return std::nullopt;
    }
    stream.remove_suffix(states_end.size());
    return is_batch_name(stream) ? std::optional(std::string(stream)) : std::nullopt;
}

std::optional<uint64_t> number_behind(std::string_view prefix, std::string_view subject)
{
    if (!subject.starts_with(prefix))
    {
        return std::nullopt;
    }
    subject.remove_prefix(prefix.size());
    uint64_t number = 0;
    const auto [end, failure] = std::from_chars(subject.data(), subject.data() + subject.size(), number);
    const bool valid = failure == std::errc() && end == subject.data() + subject.size();
    return valid ? std::optional(number) : std::nullopt;
}

} // namespace vantor
