/** @file
 * Parses and formats server addresses.
 */
#include "vantor/address.h"

#include <algorithm>
#include <charconv>
#include <iomanip>
#include <optional>
#include <sstream>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

/** Parses the complete text as a decimal number within bounds; nothing if it is not one. */
std::optional<uint32_t> parse_number(std::string_view text, uint32_t lowest, uint32_t highest)
{
    uint32_t value = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, value);
    if (failure != std::errc{} || stop != end || value < lowest || value > highest)
    {
        return std::nullopt;
    }
    return value;
}

/** Parses "HOST:PORT" or "[HOST]:PORT". */
tcp_address parse_tcp(std::string_view text)
{
    const auto colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0)
    {
        throw address_error("A TCP address needs a host and a port: write tcp:HOST:PORT, for example "
                            "tcp:127.0.0.1:5000.");
    }
    const auto port = parse_number(text.substr(colon + 1), 1, 65535);
    if (!port)
    {
        throw address_error("The port in \"tcp:" + std::string(text) +
                            "\" must be a number from 1 to 65535.");
    }
    auto host = text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    {
        host = host.substr(1, host.size() - 2);
    }
    return {.host = std::string(host), .port = static_cast<uint16_t>(*port)};
}

/** Parses a path. */
unix_address parse_unix(std::string_view text)
{
    if (text.empty())
    {
        throw address_error("The address of a socket needs a path: write unix:PATH, for example "
                            "unix:/tmp/radar.");
    }
    return {.path = std::string(text)};
}

/** Parses "DEVICE" or "DEVICE@BAUD". */
serial_address parse_serial(std::string_view text)
{
    serial_address result;
    const auto at = text.rfind('@');
    result.device = std::string(text.substr(0, at));
    if (result.device.empty())
    {
        throw address_error("A serial address needs a device: write serial:DEVICE@BAUD, for example "
                            "serial:/dev/ttyACM0@115200.");
    }
    if (at == std::string_view::npos)
    {
        return result;
    }
    const auto baudrate = parse_number(text.substr(at + 1), 1, 100'000'000);
    if (!baudrate)
    {
        throw address_error("The baud rate in \"serial:" + std::string(text) +
                            "\" must be a number, for example 115200.");
    }
    result.baudrate = *baudrate;
    return result;
}

/** Characters that separate the arguments of a simulated server. */
constexpr std::string_view blanks = " \t\n";

/** Splits a text into words: at blanks, except those in quotes or after a backslash. */
class word_splitter
{
public:
    explicit word_splitter(std::string_view text) : text_(text)
    {
    }

    /** The next word; nothing at the end. */
    std::optional<std::string> next()
    {
        position_ = std::min(text_.find_first_not_of(blanks, position_), text_.size());
        if (position_ == text_.size())
        {
            return std::nullopt;
        }
        std::string word;
        while (position_ < text_.size() && blanks.find(text_[position_]) == std::string_view::npos)
        {
            add_part(word);
        }
        return word;
    }

private:
    /** Appends a character, or what is in quotes. */
    void add_part(std::string &word)
    {
        const char first = take();
        if (first != '"' && first != '\'')
        {
            word += first == '\\' ? take() : first;
            return;
        }
        for (char c = take(); c != first; c = take())
        {
            word += c == '\\' && first == '"' ? take() : c;
        }
    }

    /** The next character, which must exist. */
    char take()
    {
        if (position_ == text_.size())
        {
            throw address_error("A quote is not closed, or nothing follows a backslash, in \"sim:" +
                                std::string(text_) + "\": write for example sim:--scene \"my scene.json\".");
        }
        return text_[position_++];
    }

    std::string_view text_;
    size_t position_ = 0;
};

/** Parses the arguments of a simulated server. */
simulator_address parse_simulator(std::string_view text)
{
    simulator_address result;
    word_splitter words(text);
    while (const auto word = words.next())
    {
        result.arguments.push_back(*word);
    }
    return result;
}

/** Formats each kind of address. */
struct address_writer
{
    std::string operator()(const tcp_address &where) const
    {
        const bool bracketed = where.host.find(':') != std::string::npos;
        const std::string host = bracketed ? "[" + where.host + "]" : where.host;
        return "tcp:" + host + ":" + std::to_string(where.port);
    }

    std::string operator()(const unix_address &where) const
    {
        return "unix:" + where.path;
    }

    std::string operator()(const serial_address &where) const
    {
        return "serial:" + where.device + "@" + std::to_string(where.baudrate);
    }

    std::string operator()(const relayed_address &where) const
    {
        return where.text;
    }

    std::string operator()(const simulator_address &where) const
    {
        std::ostringstream text;
        text << "sim:";
        const char *separator = "";
        for (const auto &argument : where.arguments)
        {
            const bool plain = !argument.empty() && argument.find_first_of(blanks) == std::string::npos &&
                               argument.find_first_of("\"'\\") == std::string::npos;
            text << separator;
            plain ? text << argument : text << std::quoted(argument);
            separator = " ";
        }
        return text.str();
    }
};

} // namespace

address parse_address(std::string_view text)
{
    const auto colon = text.find(':');
    const auto kind = text.substr(0, colon);
    const auto rest = colon == std::string_view::npos ? std::string_view{} : text.substr(colon + 1);
    if (colon != std::string_view::npos && kind == "tcp")
    {
        return parse_tcp(rest);
    }
    if (colon != std::string_view::npos && kind == "unix")
    {
        return parse_unix(rest);
    }
    if (colon != std::string_view::npos && kind == "serial")
    {
        return parse_serial(rest);
    }
    if (colon != std::string_view::npos && kind == "sim")
    {
        return parse_simulator(rest);
    }
    if (colon != std::string_view::npos && (kind == "nats" || kind == "mqtt"))
    {
        return relayed_address{std::string(text)};
    }
    throw address_error("\"" + std::string(text) +
                        "\" is not a valid address: write tcp:HOST:PORT, unix:PATH, serial:DEVICE@BAUD, or "
                        "sim: for a simulated server.");
}

std::string to_string(const address &where)
{
    return std::visit(address_writer{}, where);
}

} // namespace vantor
