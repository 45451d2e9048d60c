/** @file
 * Who may use the web server of the live view.
 */
#include "view/view_access.h"

#include <algorithm>
#include <utility>

#include <boost/algorithm/string/predicate.hpp>
#include <boost/asio/ip/address.hpp>
#include <openssl/crypto.h>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

using boost::asio::ip::address;

/** Returns an address without a zone; nothing if the text is not a numeric one. */
std::optional<address> numeric_address(std::string_view text)
{
    boost::system::error_code failure;
    const auto parsed = boost::asio::ip::make_address(std::string(text), failure);
    if (failure || text.find('%') != std::string_view::npos)
    {
        return std::nullopt;
    }
    return parsed;
}

/** Returns an IPv4 address that is written as one of IPv6 in its own form. */
address unmapped(const address &given)
{
    const bool is_mapped = given.is_v6() && given.to_v6().is_v4_mapped();
    return is_mapped ? make_address_v4(boost::asio::ip::v4_mapped, given.to_v6()) : given;
}

/** Returns the address in the form of URLs: IPv6 in brackets. */
std::string in_url(const address &shown)
{
    const std::string text = shown.to_string();
    return shown.is_v6() ? std::string("[").append(text).append("]") : text;
}

/** Returns the numeric address of a name in the form of URLs; nothing if it is not one. */
std::optional<address> url_address(std::string_view name)
{
    const bool bracketed = name.starts_with('[') && name.ends_with(']');
    const auto parsed = numeric_address(bracketed ? name.substr(1, name.size() - 2) : name);
    return parsed && parsed->is_v6() == bracketed ? parsed : std::nullopt;
}

} // namespace

view_access::view_access(const std::string &host, uint16_t port, std::string token)
    : port_(std::to_string(port)), token_(std::move(token))
{
    const bool is_name = boost::algorithm::iequals(host, "localhost");
    const auto parsed = numeric_address(is_name ? "127.0.0.1" : host);
    if (!parsed || parsed->is_multicast())
    {
        throw error("\"" + host +
                    "\" is not an address to listen on; use a numeric address of this machine, such as "
                    "127.0.0.1 or ::1.");
    }
    address_ = unmapped(*parsed).to_string();
}

bool view_access::is_wildcard() const
{
    return numeric_address(address_)->is_unspecified();
}

bool view_access::reachable_from_outside() const
{
    return !numeric_address(address_)->is_loopback();
}

std::string view_access::url() const
{
    const auto listened = *numeric_address(address_);
    const bool is_v6 = listened.is_v6();
    const std::string name = is_wildcard() ? (is_v6 ? "[::1]" : "127.0.0.1") : in_url(listened);
    return "http://" + name + ":" + port_ + "/?token=" + token_;
}

bool view_access::is_own_address(std::string_view name) const
{
    const auto named = url_address(name);
    return boost::algorithm::iequals(name, "localhost") ||
           (named && (is_wildcard() || named->is_loopback() || named->to_string() == address_));
}

bool view_access::is_own_host(std::string_view host) const
{
    const size_t colon = host.find_last_of(":]");
    if (colon == std::string_view::npos || host[colon] == ']')
    {
        // Browsers leave out the usual port of HTTP.
        return port_ == "80" && is_own_address(host);
    }
    return host.substr(colon + 1) == port_ && is_own_address(host.substr(0, colon));
}

bool view_access::has_token(std::string_view target) const
{
    const std::string_view given = query_value(target, "token").value_or("");
    return given.size() == token_.size() && CRYPTO_memcmp(given.data(), token_.data(), token_.size()) == 0;
}

std::optional<view_answer> view_access::stream_refusal(const view_request &request) const
{
    if (!request.is_upgrade)
    {
        return sentence_answer(400, "This address is only for WebSockets.\n");
    }
    if (request.origin && *request.origin != "http://" + std::string(request.host))
    {
        return sentence_answer(403, "Only the page of this server can open its WebSocket.\n");
    }
    return std::nullopt;
}

std::optional<view_answer> view_access::refusal(const view_request &request) const
{
    if (!is_own_host(request.host))
    {
        return sentence_answer(421, "This is not an address of this server. Use the address that vantor "
                                    "view printed, or another numeric address of the machine.\n");
    }
    if (request.method != "GET" && request.method != "HEAD")
    {
        auto answer = sentence_answer(405, "Only GET and HEAD are allowed.\n");
        answer.header = {"Allow", "GET, HEAD"};
        return answer;
    }
    const std::string_view path = request.target.substr(0, request.target.find('?'));
    const bool is_stream = path == view_stream_path;
    if (request.is_upgrade && !is_stream)
    {
        return sentence_answer(404, "There is no WebSocket at this address.\n");
    }
    if ((is_stream || path == "/") && !has_token(request.target))
    {
        return sentence_answer(403, "The token in the address is missing or wrong. Use the address that "
                                    "vantor view printed.\n");
    }
    return is_stream ? stream_refusal(request) : std::nullopt;
}

} // namespace vantor
