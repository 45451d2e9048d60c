/** @file
 * Runs `vantor view`, in a build with the live view.
 */
#include "commands/view_run.h"

#include <charconv>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "commands/browser.h"
#include "commands/damage.h"
#include "commands/interrupt.h"
#include "commands/truth_option.h"
#include "commands/usage_error.h"
#include "commands/validation.h"
#include "plot/scratch_directory.h"
#include "recording/printable.h"
#include "vantor/client.h"
#include "vantor/configuration.h"
#include "vantor/recording_error.h"
#include "vantor/recording_source.h"
#include "view/live_view.h"
#include "view/playback_view.h"

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

/** Whether the argument names a recording, not a configuration. */
bool is_recording(const std::filesystem::path &what)
{
    std::error_code failure;
    return std::filesystem::is_directory(what, failure) || what.extension().string().starts_with(".sigmf-");
}

/** Prints where the page is, and opens it. */
class announcement
{
public:
    announcement(const view_server &server, const view_options &options, const command_streams &streams)
    {
        if (server.reachable_from_outside())
        {
            streams.err
                << "warning: other machines can connect to " << options.listen
                << "; everybody who sees the address below on the network controls the sensors, because the "
                   "connection is not encrypted\n";
        }
        streams.out << server.url() << "\n" << std::flush;
        if (!options.no_browser)
        {
            open_page(server.url(), streams);
        }
    }

private:
    /** Opens the page in the browser. If that fails, the user can still open the address that was printed. */
    void open_page(const std::string &address, const command_streams &streams)
    {
        try
        {
            open_browser(address, scratch_.emplace() / "view.html");
        }
        catch (const recording_error &failure)
        {
            streams.err << "warning: cannot open the browser: " << failure.what() << "\n";
        }
    }

    std::optional<scratch_directory> scratch_; /**< with the file that the browser opens */
};

/** Shows frames until the user asks to stop. Viewers receive a reason when the view ends or fails. */
template <typename view_t> void run_view(view_t &view, view_server &server)
{
    try
    {
        view.run(interrupt_watch::interrupted);
    }
    catch (const std::exception &)
    {
        server.end("vantor view has failed; its terminal says why.");
        throw;
    }
    server.end("vantor view has ended.");
}

/** The configuration of the first session: that of the user, of a replayed recording, or of one sensor. */
nlohmann::json first_configuration(const view_options &options, const server_info &server,
                                   const command_streams &streams)
{
    if (!options.what.empty())
    {
        auto configuration = load_configuration(options.what);
        require_valid(configuration, options.what, streams.err);
        return configuration;
    }
    if (server.configuration)
    {
        require_valid(*server.configuration, "The configuration of the server", streams.err);
        return *server.configuration;
    }
    const auto sensor = server.connected_sensors.empty() ? 1U : server.connected_sensors.front();
    const nlohmann::json item{{"sensor_id", sensor}, {"config", nlohmann::json::object()}};
    return {{"update_rate", 20}, {"groups", nlohmann::json::array({nlohmann::json::array({item})})}};
}

/** Reports recordings that are not complete; returns whether there are any. */
bool report_failures(const live_view &view, const command_streams &streams)
{
    for (const auto &outcome : view.failed_recordings())
    {
        streams.err << "vantor: " << printable(outcome.text()) << "\n";
    }
    return !view.failed_recordings().empty();
}

/** Shows a server. */
exit_code view_server_frames(const view_options &options, const command_streams &streams)
{
    const auto where = parse_address(options.connect);
    const auto served = server_with_truth(where, options.truth);
    const auto loop = std::make_shared<event_loop>();
    const interrupt_watch watch(*loop);
    client server(served.where, {}, loop);
    live_view_settings settings{.configuration = first_configuration(options, server.server(), streams),
                                .name = options.what.empty() ? "view" : options.what.stem().string(),
                                .address = options.connect,
                                .source = describe_source(where, server.server()),
                                .record = options.record,
                                .truth = served.truth.get()};
    if (list_items(settings.configuration).empty())
    {
        throw configuration_error(
            "The configuration has no items, so there is nothing to show: add an item to "
            "\"groups\".");
    }
    view_server pages(parse_listen_address(options.listen), make_view_token(), *loop);
    viewers all(pages);
    live_view view(server, std::move(settings), all, *loop);
    const announcement shown(pages, options, streams);
    run_view(view, pages);
    return report_failures(view, streams) ? exit_code::not_written : exit_code::success;
}

/** Throws cancelled if the user has asked to stop. */
void stop_if_interrupted()
{
    if (interrupt_watch::interrupted())
    {
        throw cancelled();
    }
}

/** Shows a recording. */
exit_code view_recording(const view_options &options, const command_streams &streams)
{
    if (!options.record.empty())
    {
        throw usage_error("--record is for a server; this is a recording already");
    }
    if (!options.truth.empty())
    {
        throw usage_error("--truth is for a server; a recording has its own truth");
    }
    recording_reader recording(options.what);
    if (recording.frames() == 0)
    {
        throw bad_recording("The recording has no complete frame, so there is nothing to show.");
    }
    const auto loop = std::make_shared<event_loop>();
    const interrupt_watch watch(*loop);
    warn_of_damage(recording, streams, stop_if_interrupted);
    view_server pages(parse_listen_address(options.listen), make_view_token(), *loop);
    viewers all(pages);
    playback_view view(recording, all, *loop);
    const announcement shown(pages, options, streams);
    run_view(view, pages);
    return exit_code::success;
}

} // namespace

exit_code run_view(const view_options &options, const command_streams &streams)
{
    return is_recording(options.what) ? view_recording(options, streams)
                                      : view_server_frames(options, streams);
}

} // namespace vantor
