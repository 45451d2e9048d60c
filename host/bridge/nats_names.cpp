/** @file
 * How streams and subjects of a NATS server are called, and what they say.
 */
#include "bridge/nats_names.h"

#include <algorithm>
#include <charconv>

#include "bridge/batch.h"

namespace vantor
{
namespace
{

/** What the names of all streams begin with, and those of streams with states end with. */
constexpr std::string_view stream_begin = "vantor-";
constexpr std::string_view states_end = "-states";

/** Whether a text begins with a number. */
bool begins_with_digit(std::string_view text) noexcept
{
    return !text.empty() && text.front() >= '0' && text.front() <= '9';
}

/** Takes the number at the begin of a name, without leading zeros, or else its first character. */
std::string_view take_part(std::string_view &name) noexcept
{
    constexpr std::string_view digits = "0123456789";
    const auto end = std::min(name.find_first_not_of(digits), name.size());
    const auto zeros = std::min(name.find_first_not_of('0'), end);
    const auto part = end == 0 ? name.substr(0, 1) : name.substr(zeros, end - zeros);
    name.remove_prefix(std::max<size_t>(end, 1));
    return part;
}

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

bool comes_before(std::string_view name, std::string_view other) noexcept
{
    auto left = name;
    auto right = other;
    while (!left.empty() && !right.empty())
    {
        if (const bool is_number = begins_with_digit(left); is_number != begins_with_digit(right))
        {
            return is_number;
        }
        const auto one = take_part(left);
        const auto two = take_part(right);
        if (one != two)
        {
            return one.size() == two.size() ? one < two : one.size() < two.size();
        }
    }
    return left.empty() == right.empty() ? name < other : left.empty();
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
