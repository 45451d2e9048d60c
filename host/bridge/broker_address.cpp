/** @file
 * Addresses of message brokers, and of boards behind them.
 */
#include "bridge/broker_address.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "bridge/batch.h"

namespace vantor
{
namespace
{

using utc_moment = std::chrono::sys_time<std::chrono::nanoseconds>;

/** How addresses of a kind of brokers are written. */
struct broker_scheme
{
    broker_kind kind;
    std::string_view prefix;
    uint16_t usual_port;
};

constexpr std::array<broker_scheme, 2> schemes{
    {{broker_kind::nats, "nats:", 4222}, {broker_kind::mqtt, "mqtt:", 1883}}};

constexpr const char *broker_forms =
    "Write nats:HOST or nats:HOST:PORT for a NATS server, mqtt:HOST or mqtt:HOST:PORT for an MQTT broker.";
constexpr const char *no_reading = "Boards behind an MQTT broker cannot be read, only those behind a NATS "
                                   "server: subscribe to the topics with a program of your own.";
constexpr const char *board_forms =
    "Write nats:HOST/SITE/BOARD, with :PORT behind the host if it is not 4222, and with "
    "@2026-11-23T12:00:00Z behind the board for frames from that time on.";

/** Throws the failure of an address. */
[[noreturn]] void refuse(std::string_view text, const char *forms)
{
    throw address_error("\"" + std::string(text) + "\" is not a valid address. " + forms);
}

/** The scheme of an address; null if it does not begin with one. */
const broker_scheme *find_scheme(std::string_view text) noexcept
{
    const auto *found = std::find_if(schemes.begin(), schemes.end(), [text](const broker_scheme &one) {
        return text.starts_with(one.prefix);
    });
    return found == schemes.end() ? nullptr : found;
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

/** Whether a text has the form of a pattern, in which "0" stands for any digit. */
bool has_form(std::string_view text, std::string_view pattern)
{
    return std::ranges::equal(text, pattern, [](char c, char expected) {
        return expected == '0' ? c >= '0' && c <= '9' : c == expected;
    });
}

/** The number that some digits are. */
int number_of(std::string_view digits)
{
    int number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

/** Reads the end of a time, "Z" or ".123Z", with up to 9 digits; nothing if the text is not one. */
std::optional<std::chrono::nanoseconds> read_fraction(std::string_view text)
{
    constexpr std::string_view nine_digits = "000000000";
    if (text == "Z")
    {
        return std::chrono::nanoseconds(0);
    }
    if (!text.starts_with('.') || !text.ends_with('Z') || text.size() < 3)
    {
        return std::nullopt;
    }
    std::string digits(text.substr(1, text.size() - 2));
    digits.resize(std::max(digits.size(), nine_digits.size()), '0');
    return has_form(digits, nine_digits) ? std::optional(std::chrono::nanoseconds(number_of(digits)))
                                         : std::nullopt;
}

/** Reads a time in UTC from 1970 to 2100; nothing if the text is not one. */
std::optional<utc_moment> read_utc(std::string_view text)
{
    using namespace std::chrono;
    constexpr std::string_view seconds_form = "0000-00-00T00:00:00";
    constexpr year first_year(1970);
    constexpr year last_year(2100);
    const auto whole = text.substr(0, seconds_form.size());
    if (!has_form(whole, seconds_form))
    {
        return std::nullopt;
    }
    const auto number_at = [whole](size_t at, size_t digits) { return number_of(whole.substr(at, digits)); };
    const year_month_day date(year(number_at(0, 4)), month(static_cast<unsigned>(number_at(5, 2))),
                              day(static_cast<unsigned>(number_at(8, 2))));
    const hours hour(number_at(11, 2));
    const minutes minute(number_at(14, 2));
    const seconds second(number_at(17, 2));
    const auto fraction = read_fraction(text.substr(whole.size()));
    const bool valid = date.ok() && date.year() >= first_year && date.year() <= last_year && hour < days(1) &&
                       minute < hours(1) && second < minutes(1) && fraction;
    return valid ? std::optional(sys_days(date) + hour + minute + second + *fraction) : std::nullopt;
}

} // namespace

bool is_broker_address(std::string_view text) noexcept
{
    return find_scheme(text) != nullptr;
}

broker_address parse_broker_address(std::string_view text)
{
    const auto *scheme = find_scheme(text);
    const auto parts = scheme == nullptr ? std::nullopt : split_host(text.substr(scheme->prefix.size()));
    if (!parts || parts->first.find_first_of("/@ ") != std::string::npos)
    {
        refuse(text, broker_forms);
    }
    const auto &[host, rest] = *parts;
    const auto port =
        rest.empty() ? scheme->usual_port : read_port(rest.substr(rest.starts_with(':') ? 1 : 0));
    if (!port || (!rest.empty() && !rest.starts_with(':')))
    {
        refuse(text, broker_forms);
    }
    return {.kind = scheme->kind, .host = host, .port = *port};
}

remote_board_address parse_remote_board_address(std::string_view text)
{
    const auto *scheme = find_scheme(text);
    if (scheme != nullptr && scheme->kind == broker_kind::mqtt)
    {
        refuse(text, no_reading);
    }
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
                                                                    : read_utc(text.substr(at + 1))};
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
    const auto *scheme = std::find_if(schemes.begin(), schemes.end(),
                                      [&where](const broker_scheme &one) { return one.kind == where.kind; });
    return std::string(scheme->prefix) + (is_ipv6 ? "[" + where.host + "]" : where.host) + ":" +
           std::to_string(where.port);
}

} // namespace vantor
