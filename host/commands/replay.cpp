/** @file
 * `vantor replay`.
 */
#include "commands/replay.h"

#include <chrono>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "bridge/remote_board.h"
#include "bridge/remote_links.h"
#include "client/local_link.h"
#include "client/tcp_listener.h"
#include "commands/common_options.h"
#include "commands/damage.h"
#include "commands/interrupt.h"
#include "commands/progress.h"
#include "commands/usage_error.h"
#include "recording/printable.h"
#include "replay/recorded_stream.h"
#include "replay/replay_server.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

constexpr const char *replay_footer = R"(Examples:
  vantor replay recordings/garage --tcp 6110
  vantor record --frames 100 --connect tcp:127.0.0.1:6110
      records the frames that are replayed
  vantor replay recordings/garage --tcp 6110 --speed max
  vantor replay nats:broker.local/hall/door --tcp 6110
      passes on the frames of a board behind a message broker; see docs/fleet.md

The server sends the metadata and the frames of the recording, at the pace at which they were measured. After
the last frame it starts again, with ticks that continue as if there were no jump, and prints that it does.
--speed changes the pace, but not the ticks in the frames. The frames have their recorded times in UTC until they
are repeated. "vantor record" needs no configuration: it uses that
of the recording. Others are refused, unless they measure the same. A second host gets the error "busy".
Press Ctrl-C to stop the server.)";

/** How long to wait for a host at a time. */
constexpr std::chrono::minutes host_patience{1};

/** The answer to a host that connects while another one is connected. */
constexpr const char *busy_message =
    "{\"status\":\"error\",\"code\":\"busy\",\"message\":\"Another host is using the server: connect again "
    "when it has disconnected.\",\"payload_size\":0}\n";

/** The options of `vantor replay`. */
struct replay_options
{
    std::filesystem::path recording; /**< or the address of a board behind a broker */
    uint64_t port = 0;
    bool stdio = false;
    uint64_t hosts = 0;          /**< 0 for no limit */
    std::optional<double> speed; /**< infinite for as fast as possible; 1 if not given */
};

/** Serves hosts, one after the other. */
class replay_service
{
public:
    /** @param stream  what they get; must outlive this object, like the streams */
    replay_service(served_stream &stream, const command_streams &streams) : stream_(stream), streams_(streams)
    {
    }

    /** Serves a host until it disconnects or stops reading; shows on a terminal how many frames were sent. */
    void serve(link &host)
    try
    {
        ++served_;
        replay_server server(stream_, host, counts_);
        progress_line progress(streams_.err, streams_.terminal, {});
        server.run([&] {
            progress.update(counts_.frames);
            return interrupt_watch::interrupted();
        });
    }
    catch (const connection_lost &) // NOLINT(bugprone-empty-catch): the host has gone
    {
    }
    catch (const timeout_error &)
    {
        streams_.err << "Disconnected a host that accepted no data for 10 s.\n";
    }

    /** Number of hosts, including the connected one. */
    [[nodiscard]] uint64_t served() const noexcept
    {
        return served_;
    }

private:
    served_stream &stream_;
    const command_streams &streams_;
    replay_counts counts_;
    uint64_t served_ = 0;
};

/** Throws cancelled if the user has asked to stop. */
void require_no_interruption()
{
    if (interrupt_watch::interrupted())
    {
        throw cancelled();
    }
}

/** Serves one host after the other over TCP until all have been served, or a signal asks to stop. */
void serve_port(replay_service &service, const replay_options &options, const command_streams &streams,
                const std::shared_ptr<event_loop> &loop)
{
    tcp_listener listener(static_cast<uint16_t>(options.port), busy_message, loop);
    streams.out << "listening on tcp:127.0.0.1:" << listener.port() << "\n" << std::flush;
    while (!interrupt_watch::interrupted() && (options.hosts == 0 || service.served() < options.hosts))
    {
        if (const auto host = listener.accept(host_patience))
        {
            service.serve(*host);
        }
    }
}

/** Serves the host at the other end of standard input and output, which are a socket. */
void serve_standard_streams(replay_service &service, const std::shared_ptr<event_loop> &loop)
{
    const int socket = ::dup(STDIN_FILENO);
    struct stat kind = {};
    if (socket < 0 || ::fstat(socket, &kind) != 0 || !S_ISSOCK(kind.st_mode))
    {
        throw usage_error("--stdio needs a socket as standard input: it is for programs that start this one");
    }
    local_link host(socket, loop);
    service.serve(host);
}

/** Where lines for the user go: with --stdio, standard output is the link. */
std::ostream &notes_of(const replay_options &options, const command_streams &streams)
{
    return options.stdio ? streams.err : streams.out;
}

/** Serves a stream to hosts until all have been served, or a signal asks to stop. */
exit_code serve(served_stream &stream, const replay_options &options, const command_streams &streams,
                const std::shared_ptr<event_loop> &loop)
{
    replay_service service(stream, streams);
    try
    {
        options.stdio ? serve_standard_streams(service, loop) : serve_port(service, options, streams, loop);
    }
    catch (const cancelled &) // NOLINT(bugprone-empty-catch): by a signal
    {
    }
    if (interrupt_watch::interrupted())
    {
        notes_of(options, streams) << "stopped; hosts served: " << service.served() << "\n";
    }
    return exit_code::success;
}

/** Serves a recording, again and again. */
exit_code replay_recording(const replay_options &options, const command_streams &streams,
                           const std::shared_ptr<event_loop> &loop)
{
    recording_reader recording(options.recording);
    if (recording.frames() == 0)
    {
        throw bad_recording("The recording has no complete frame, so there is nothing to replay.");
    }
    // Before the line that shows other programs that the server is ready.
    const interrupt_watch watch(*loop);
    warn_of_damage(recording, streams, require_no_interruption);
    bool announced = false;
    recorded_stream stream(recording, *loop, {.speed = options.speed.value_or(1.0), .started_again = [&] {
                                                  if (!std::exchange(announced, true))
                                                  {
                                                      notes_of(options, streams)
                                                          << "starts again after the last of "
                                                          << recording.frames() << " frames\n"
                                                          << std::flush;
                                                  }
                                              }});
    return serve(stream, options, streams, loop);
}

/** Serves a board behind a message broker. */
exit_code replay_board(const replay_options &options, const command_streams &streams,
                       const std::shared_ptr<event_loop> &loop)
{
    if (options.speed)
    {
        throw usage_error("--speed is for recordings: the frames of a board are sent when they arrive");
    }
    const auto where = parse_remote_board_address(options.recording.string());
    const interrupt_watch watch(*loop);
    remote_board board(where, security_of_environment(), *loop, [&streams](const std::string &line) {
        streams.err << printable(line) << "\n" << std::flush;
    });
    return serve(board, options, streams, loop);
}

/** Serves a recording or a board. */
exit_code replay(const replay_options &options, const command_streams &streams)
{
    if (options.stdio && (options.port != 0 || options.hosts != 0))
    {
        throw usage_error(
            "--stdio serves one host, which has connected already: leave --tcp and --hosts out");
    }
    const auto loop = std::make_shared<event_loop>();
    return is_broker_address(options.recording.string()) ? replay_board(options, streams, loop)
                                                         : replay_recording(options, streams, loop);
}

} // namespace

command replay_command()
{
    auto options = std::make_shared<replay_options>();
    return {
        .name = "replay",
        .help = "Act as a server that sends a recording.",
        .footer = replay_footer,
        .options = {{.name = "RECORDING",
                     .help = "Directory written by \"vantor record\", or a board behind a message broker: "
                             "nats:HOST[:PORT]/SITE/BOARD[@TIME]",
                     .value = &options->recording,
                     .required = true},
                    {.name = "--tcp",
                     .help = "TCP port on 127.0.0.1 to listen on; 0 for any free port",
                     .value = whole_number_value{.target = &options->port,
                                                 .least = 0,
                                                 .most = std::numeric_limits<uint16_t>::max()},
                     .value_name = "PORT",
                     .default_value = "0"},
                    {.name = "--stdio",
                     .help = "Serve the program that has started this one, over standard input and output",
                     .value = &options->stdio},
                    {.name = "--hosts",
                     .help = "Stop after this many hosts",
                     .value = whole_number_value{.target = &options->hosts},
                     .value_name = "NUMBER"},
                    {.name = "--speed",
                     .help = "Send frames this many times as fast as measured, or max",
                     .value = number_value{.target = &options->speed, .above = 0.0, .infinity = "max"},
                     .value_name = "NUMBER",
                     .default_value = "1"}},
        .run = [options](const command_streams &streams) { return replay(*options, streams); }};
}

} // namespace vantor
