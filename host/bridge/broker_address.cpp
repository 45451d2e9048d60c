/** @file
 * Addresses of message brokers, and of boards behind them.
 */
#include "bridge/broker_address.h"

#include <charconv>
#include <ctime>
#include <utility>

#include "bridge/batch.h"

namespace vantor
{
namespace
{

using utc_moment = std::chrono::sys_time<std::chrono::nanoseconds>;

/** What addresses begin with, and the usual port. */
constexpr std::string_view scheme = "nats:";
constexpr uint16_t usual_port = 4222;

constexpr const char *broker_forms = "Write nats:HOST or nats:HOST:PORT.";
constexpr const char *board_forms =
    "Write nats:HOST/SITE/BOARD, with :PORT behind the host if it is not 4222, and with "
    "@2026-11-23T12:00:00Z behind the board for frames from that time on.";

/** Throws the failure of an address. */
[[noreturn]] void refuse(std::string_view text, const char *forms)
{
    throw address_error("\"" + std::string(text) + "\" is not a valid address. " + forms);
}

/** Reads a port; nothing if the text is not one. */
std::optional<uint16_t> read_port(std::string_view text)
{
    uint16_t port = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool valid = failure == std::errc() && end == text.data() + text.size() && port > 0;
    return valid ? std::optional(port) : std::nullopt;
}

/** Splits the host and the text behind it; an IPv6 address is in brackets. Nothing if there is no host. */
std::optional<std::pair<std::string, std::string_view>> split_host(std::string_view text)
{
    const bool bracketed = text.starts_with('[');
    const auto end = bracketed ? text.find(']') : std::min(text.find(':'), text.size());
    const size_t skipped = bracketed ? 1 : 0;
    if (end == std::string_view::npos || end == skipped)
    {
        return std::nullopt;
    }
    return std::pair(std::string(text.substr(skipped, end - skipped)), text.substr(end + skipped));
}

/** Reads a time in UTC; nothing if the text is not one. */
std::optional<utc_moment> read_time(std::string_view text)
{
    std::tm parts{};
    const std::string copy(text);
    const char *rest = ::strptime(copy.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (rest == nullptr)
    {
        return std::nullopt;
    }
    const std::string_view fraction_text(rest);
    double fraction = 0.0;
    const char *end = rest;
    if (fraction_text.starts_with('.'))
    {
        const auto [stop, failure] =
            std::from_chars(rest, rest + fraction_text.size(), fraction, std::chars_format::fixed);
        end = failure == std::errc() ? stop : rest;
    }
    if (std::string_view(end) != "Z")
    {
        return std::nullopt;
    }
    constexpr int first_year = 70;
    constexpr int last_year = 200;
    if (parts.tm_year < first_year || parts.tm_year > last_year)
    {
        return std::nullopt;
    }
    const auto nanoseconds =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(fraction));
    return utc_moment(std::chrono::system_clock::from_time_t(::timegm(&parts)).time_since_epoch()) +
           nanoseconds;
}

} // namespace

bool is_broker_address(std::string_view text) noexcept
{
    return text.starts_with(scheme);
}

broker_address parse_broker_address(std::string_view text)
{
    const auto parts = is_broker_address(text) ? split_host(text.substr(scheme.size())) : std::nullopt;
    if (!parts || parts->first.find_first_of("/@ ") != std::string::npos)
    {
        refuse(text, broker_forms);
    }
    const auto &[host, rest] = *parts;
    const auto port = rest.empty() ? usual_port : read_port(rest.substr(rest.starts_with(':') ? 1 : 0));
    if (!port || (!rest.empty() && !rest.starts_with(':')))
    {
        refuse(text, broker_forms);
    }
    return {.host = host, .port = *port};
}

remote_board_address parse_remote_board_address(std::string_view text)
{
    const auto slash = text.find('/');
    const auto second = slash == std::string_view::npos ? slash : text.find('/', slash + 1);
    if (second == std::string_view::npos)
    {
        refuse(text, board_forms);
    }
    const auto at = text.find('@', second);
    remote_board_address where{.broker = parse_broker_address(text.substr(0, slash)),
                               .site = std::string(text.substr(slash + 1, second - slash - 1)),
                               .board = std::string(text.substr(second + 1, at - second - 1)),
                               .from = at == std::string_view::npos ? std::nullopt
                                                                    : read_time(text.substr(at + 1))};
    const bool valid = is_batch_name(where.site) && is_batch_name(where.board) &&
                       where.from.has_value() == (at != std::string_view::npos);
    if (!valid)
    {
        refuse(text, board_forms);
    }
    return where;
}

std::string to_string(const broker_address &where)
{
    const bool is_ipv6 = where.host.find(':') != std::string::npos;
    return std::string(scheme) + (is_ipv6 ? "[" + where.host + "]" : where.host) + ":" +
           std::to_string(where.port);
}

} // namespace vantor
