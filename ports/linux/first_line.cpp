/** @file
 * Recognises clients on a TCP connection that are not hosts.
 */
#include "first_line.h"

#include <string_view>

namespace
{

/** First bytes of a TLS connection: a record of type handshake, and the major version of the protocol. */
constexpr char tls_handshake = 0x16;
constexpr char tls_major_version = 0x03;

constexpr bool is_space(char c)
{
    return c == ' ' || c == '\t';
}

constexpr bool is_line_end(char c)
{
    return c == '\r' || c == '\n';
}

/** Returns whether a character can be part of an HTTP method, in upper or lower case. */
constexpr bool is_method_character(char c)
{
    constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           marks.find(c) != std::string_view::npos;
}

} // namespace

first_line_t::state_t first_line_t::state_in_rest_of_line(char c)
{
    constexpr std::string_view name = "http";
    const char letter = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    if (is_line_end(c))
    {
        return state_t::host;
    }
    if (matched_ == name.size() && (c == '/' || c == ':'))
    {
        return state_t::not_a_host;
    }
    if (matched_ < name.size() && letter == name[matched_])
    {
        ++matched_;
    }
    else if (matched_ < name.size() || letter != 's')
    {
        matched_ = letter == name.front() ? 1 : 0;
    }
    return state_t::rest_of_line;
}

first_line_t::state_t first_line_t::next_state(char c)
{
    switch (state_)
    {
    case state_t::blank:
        return is_space(c) || is_line_end(c) ? state_t::blank
               : is_method_character(c)      ? state_t::word
               : c == tls_handshake          ? state_t::tls_record
                                             : state_t::host;
    case state_t::word:
        return is_method_character(c) ? state_t::word : is_space(c) ? state_t::after_word : state_t::host;
    case state_t::after_word:
        return is_space(c)            ? state_t::after_word
               : c == '/' || c == '*' ? state_t::not_a_host
                                      : state_in_rest_of_line(c);
    case state_t::rest_of_line:
        return state_in_rest_of_line(c);
    case state_t::tls_record:
        return c == tls_major_version ? state_t::not_a_host : state_t::host;
    case state_t::host:
    case state_t::not_a_host:
        break;
    }
    return state_;
}

bool first_line_t::accepts(const char *data, size_t size)
{
    for (size_t i = 0; i < size && state_ != state_t::host && state_ != state_t::not_a_host; ++i)
    {
        state_ = next_state(data[i]);
    }
    return state_ != state_t::not_a_host;
}
