/** @file
 * Recognises clients that are not hosts.
 */
#include "replay/first_line.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace vantor
{
namespace
{

/** The first bytes of a TLS connection: a record of type handshake, and the major version. */
constexpr std::string_view tls_handshake = "\x16\x03";

constexpr std::string_view blanks = " \t";

/** The characters of an HTTP method. */
constexpr std::string_view method_characters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!#$%&'*+-.^_`|~";

/** The text from its first character that is not in a set. */
std::string_view after(std::string_view text, std::string_view characters)
{
    return text.substr(std::min(text.find_first_not_of(characters), text.size()));
}

/** Whether a text contains the start of an address of a web page, or a version of HTTP. */
bool mentions_http(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto contains = [&](const char *part) { return text.find(part) != std::string::npos; };
    return contains("http:") || contains("https:") || contains("http/");
}

} // namespace

client_kind recognise_client(std::string_view start)
{
    const auto text = after(start, " \t\r\n");
    if (tls_handshake.starts_with(text))
    {
        return client_kind::unknown;
    }
    if (text.starts_with(tls_handshake))
    {
        return client_kind::not_a_host;
    }
    const auto rest = after(text, method_characters);
    const bool has_word = rest.size() < text.size();
    if (!rest.empty() && (!has_word || blanks.find(rest.front()) == std::string_view::npos))
    {
        return client_kind::host;
    }
    const auto target = after(rest, blanks);
    const auto line = target.substr(0, target.find_first_of("\r\n"));
    if (line.starts_with('/') || line.starts_with('*') || mentions_http(std::string(line)))
    {
        return client_kind::not_a_host;
    }
    return line.size() < target.size() ? client_kind::host : client_kind::unknown;
}

} // namespace vantor
