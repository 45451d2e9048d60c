/** @file
 * Who may use the web server of the live view.
 */
#ifndef VANTOR_VIEW_ACCESS_H
#define VANTOR_VIEW_ACCESS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "view/view_answers.h"

namespace vantor
{

/** The target of the WebSocket. */
constexpr std::string_view view_stream_path = "/stream";

/** What a request says about itself. */
struct view_request
{
    std::string_view method;
    std::string_view target; /**< path and query */
    std::string_view host;   /**< the header; empty unless there is exactly one */
    /** the header; empty text if there is more than one */
    std::optional<std::string_view> origin = std::nullopt;
    bool is_upgrade = false; /**< whether it asks for a WebSocket */
};

/** The rules of access. */
class view_access
{
public:
    /**
     * @param host   the numeric address that the server listens on, or "localhost"
     * @param port   the port that it listens on
     * @param token  what an allowed viewer knows
     * @throws error if the address is not a numeric one of a single machine
     */
    view_access(const std::string &host, uint16_t port, std::string token);

    /** Why a request must not be served; nothing if it may be. */
    [[nodiscard]] std::optional<view_answer> refusal(const view_request &request) const;

    /** The address for the browser, with the token. */
    [[nodiscard]] std::string url() const;

    /** Whether the server accepts connections from other machines. */
    [[nodiscard]] bool reachable_from_outside() const;

    /** The numeric address that the server listens on. */
    [[nodiscard]] const std::string &address() const noexcept
    {
        return address_;
    }

private:
    [[nodiscard]] bool is_own_host(std::string_view host) const;
    [[nodiscard]] bool is_own_address(std::string_view name) const;
    [[nodiscard]] bool is_wildcard() const;
    [[nodiscard]] bool has_token(std::string_view target) const;
    [[nodiscard]] std::optional<view_answer> stream_refusal(const view_request &request) const;

    std::string address_;
    std::string port_;
    std::string token_;
};

} // namespace vantor

#endif
