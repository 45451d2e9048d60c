/** @file
 * `vantor replay`.
 */
#include "commands/replay.h"

#include <chrono>
#include <filesystem>
#include <limits>
#include <memory>
#include <ostream>

#include "client/tcp_listener.h"
#include "commands/common_options.h"
#include "commands/interrupt.h"
#include "commands/progress.h"
#include "recording/recording_error.h"
#include "replay/replay_server.h"

namespace vantor
{
namespace
{

constexpr const char *replay_footer = R"(Examples:
  vantor replay recordings/garage --tcp 6110
  vantor record config.json --frames 100 --connect tcp:127.0.0.1:6110
      records the frames that are replayed

The server accepts any configuration. It sends the metadata and the frames of the recording, at the pace at
which they were measured, and starts again after the last frame. Press Ctrl-C to stop it.)";

/** How often to check for a request to stop while no host connects. */
constexpr std::chrono::milliseconds host_patience{100};

/** The options of `vantor replay`. */
struct replay_options
{
    std::filesystem::path recording;
    uint64_t port = 0;
    uint64_t hosts = 0; /**< 0 for no limit */
};

/** Serves a host until it disconnects; shows on a terminal how many frames it was sent. */
void serve(recording_reader &recording, link &host, const command_streams &streams)
{
    replay_server server(recording, host);
    progress_line progress(streams.err, streams.terminal, {});
    server.run([&] {
        progress.update(server.frames_sent());
        return interrupt_watch::interrupted();
    });
}

/** Serves a host until it disconnects or stops reading. */
void serve_and_forget(recording_reader &recording, link &host, const command_streams &streams)
{
    try
    {
        serve(recording, host, streams);
    }
    catch (const connection_lost &) // NOLINT(bugprone-empty-catch): wait for the next host
    {
    }
    catch (const timeout_error &) // NOLINT(bugprone-empty-catch): wait for the next host
    {
    }
}

/** Serves one host after the other until all have been served, or a signal asks to stop. */
exit_code replay(const replay_options &options, const command_streams &streams)
{
    recording_reader recording(options.recording);
    if (recording.frames() == 0)
    {
        throw bad_recording("The recording has no complete frame, so there is nothing to replay.");
    }
    // Before the line that shows other programs that the server is ready.
    const interrupt_watch watch;
    tcp_listener listener(static_cast<uint16_t>(options.port));
    streams.out << "listening on tcp:127.0.0.1:" << listener.port() << "\n" << std::flush;
    for (uint64_t served = 0; options.hosts == 0 || served < options.hosts;)
    {
        if (const auto host = listener.accept(host_patience))
        {
            ++served;
            serve_and_forget(recording, *host, streams);
        }
        if (interrupt_watch::interrupted())
        {
            streams.out << "interrupted; hosts served: " << served << "\n";
            return exit_code::interrupted;
        }
    }
    return exit_code::success;
}

} // namespace

command replay_command()
{
    auto options = std::make_shared<replay_options>();
    return {.name = "replay",
            .help = "Act as a server that sends a recording.",
            .footer = replay_footer,
            .options = {recording_argument(options->recording),
                        {.name = "--tcp",
                         .help = "TCP port on 127.0.0.1 to listen on; 0 for any free port",
                         .value = whole_number_value{.target = &options->port,
                                                     .least = 0,
                                                     .most = std::numeric_limits<uint16_t>::max()},
                         .value_name = "PORT",
                         .default_value = "0"},
                        {.name = "--hosts",
                         .help = "Stop after this many hosts",
                         .value = whole_number_value{.target = &options->hosts},
                         .value_name = "NUMBER"}},
            .run = [options](const command_streams &streams) { return replay(*options, streams); }};
}

} // namespace vantor
