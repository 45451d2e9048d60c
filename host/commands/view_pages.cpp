/** @file
 * The pages of `vantor view`.
 */
#include "commands/view_pages.h"

#include <charconv>
#include <ostream>

#include "commands/browser.h"
#include "commands/usage_error.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Splits "HOST:PORT"; an IPv6 address is in brackets. */
view_address parse_listen_address(const std::string &text)
{
    const auto colon = text.rfind(':');
    const auto digits = colon == std::string::npos ? "" : text.substr(colon + 1);
    view_address where{.host = text.substr(0, colon), .port = 0};
    const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), where.port);
    if (where.host.starts_with('[') && where.host.ends_with(']'))
    {
        where.host = where.host.substr(1, where.host.size() - 2);
    }
    if (failure != std::errc() || end != digits.data() + digits.size() || where.host.empty())
    {
        throw usage_error("--listen: \"" + text +
                          "\" is not an address; use HOST:PORT, such as 127.0.0.1:8080 or [::1]:0");
    }
    return where;
}

} // namespace

view_pages::view_pages(const view_options &options, const command_streams &streams, event_loop &loop)
    : options_(options), streams_(streams),
      server_(parse_listen_address(options.listen), make_view_token(), loop)
{
}

void view_pages::run(const std::function<void()> &view)
{
    announce();
    try
    {
        view();
    }
    catch (const std::exception &)
    {
        server_.end("vantor view has failed; its terminal says why.");
        throw;
    }
    server_.end("vantor view has ended.");
}

/** Prints where the page is, and opens it. */
void view_pages::announce()
{
    if (server_.reachable_from_outside())
    {
        streams_.err << "warning: other machines can connect to " << options_.listen
                     << "; everybody who sees the address below on the network controls the sensors, because "
                        "the connection is not encrypted\n";
    }
    streams_.out << server_.url() << "\n" << std::flush;
    if (!options_.no_browser)
    {
        open_page(server_.url());
    }
}

/** Opens the page in the browser. If that fails, the user can still open the address that was printed. */
void view_pages::open_page(const std::string &page)
{
    try
    {
        open_browser(page, scratch_.emplace() / "view.html");
    }
    catch (const recording_error &failure)
    {
        streams_.err << "warning: cannot open the browser: " << failure.what() << "\n";
    }
}

} // namespace vantor
