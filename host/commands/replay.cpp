/** @file
 * `vantor replay`.
 */
#include "commands/replay.h"

#include <filesystem>
#include <limits>
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

#include "commands/common_options.h"
#include "commands/progress.h"
#include "recording/recording_error.h"
#include "replay/replay_server.h"
#include "tcp_listener.h"

namespace vantor
{
namespace
{

constexpr const char *footer = R"(Examples:
  vantor replay recordings/garage --tcp 6110
  vantor record config.json --frames 100 --connect tcp:127.0.0.1:6110
      records the recording

Whatever a host configures, it gets the recording's metadata and frames, at the pace at which they were
measured; after the last frame comes the first again. Ctrl-C ends it.)";

/** What is served, and where. */
struct replay_options
{
    std::filesystem::path recording;
    std::uint16_t port = 0;
    unsigned hosts = 0; /**< 0 for no bound */
};

/** Serves a host until it goes, and shows how many frames it got. */
void serve(session_reader &recording, link &host, const command_streams &streams)
{
    replay_server server(recording, host);
    progress_line progress(streams.err, streams.terminal, {});
    server.run([&] {
        progress.update(server.frames_sent());
        return false;
    });
}

/** Serves one host after the other. */
exit_code replay(const replay_options &options, command_streams streams)
{
    session_reader recording(options.recording);
    if (recording.frames() == 0)
    {
        throw bad_recording("The recording holds no whole frame, so there is nothing to replay.");
    }
    tcp_listener listener(options.port);
    streams.out << "listening on tcp:127.0.0.1:" << listener.port() << "\n" << std::flush;
    for (unsigned served = 0; options.hosts == 0 || served < options.hosts; ++served)
    {
        const auto host = listener.accept();
        try
        {
            serve(recording, *host, streams);
        }
        catch (const connection_lost &)
        {
            continue; // the host has gone; the next one may come
        }
        catch (const timeout_error &)
        {
            continue; // the host hangs, and is let go
        }
    }
    return exit_code::success;
}

} // namespace

void add_replay_command(CLI::App &app, command_streams streams, exit_code &result)
{
    auto *command = app.add_subcommand("replay", "Serve a recording as if it were measured now.");
    auto options = std::make_shared<replay_options>();
    add_recording_argument(*command, options->recording);
    command->add_option("--tcp", options->port, "TCP port of this machine; 0 for any free one")
        ->type_name("PORT")
        ->capture_default_str();
    command->add_option("--hosts", options->hosts, "End after so many hosts")
        ->check(count_up_to(std::numeric_limits<unsigned>::max()))
        ->type_name("NUMBER");
    command->footer(footer);
    command->callback([options, streams, &result] { result = replay(*options, streams); });
}

} // namespace vantor
