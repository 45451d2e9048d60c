/** @file
 * Records one board.
 */
#include "commands/board_recording.h"

#include <utility>

#include "commands/stream_warnings.h"
#include "commands/usage_error.h"
#include "vantor/configuration.h"
#include "vantor/recording_error.h"
#include "vantor/recording_source.h"

namespace vantor
{
namespace
{

/** Returns the configuration of a replayed recording; no other server has one. */
nlohmann::json configuration_of(const server_info &server)
{
    if (!server.configuration)
    {
        throw usage_error(configuration_missing);
    }
    return *server.configuration;
}

/** Whether the sensors of a server are simulated, as far as it reports that. */
bool is_simulated(const server_info &server)
{
    return server.board && server.board->sensors == "simulated";
}

/** Adds to a failure of the files what is left of them. @param finished  whether they are complete */
std::exception_ptr with_remains(const std::exception_ptr &failure, const recording_writer &writer,
                                bool finished)
try
{
    std::rethrow_exception(failure);
}
catch (const recording_error &reason)
{
    return std::make_exception_ptr(
        recording_error(std::string(reason.what()) + " Frames recorded: " + std::to_string(writer.frames()) +
                        (finished ? ", in a complete recording."
                                  : "; \"vantor info\" shows what is left of them, \"vantor repair\" "
                                    "completes the recording.")));
}
catch (...)
{
    return failure;
}

} // namespace

board_recording::board_recording(const record_options &options, board_source source,
                                 std::shared_ptr<event_loop> loop)
    : options_(options), source_(std::move(source)), loop_(std::move(loop))
{
}

void board_recording::set_up()
{
    server_.emplace(source_.open_links, client_timeouts{}, loop_);
    if (source_.configuration.is_null())
    {
        source_.configuration = configuration_of(server_->server());
    }
    session_.emplace(*server_, source_.configuration,
                     session_policy{.recalibrate = options_.recalibrate, .reconnect = options_.reconnect},
                     *loop_, source_.truth);
    if (session_->metadata().items.empty())
    {
        throw configuration_error(source_.file.string() +
                                  " has no items, so there is nothing to record: add an item to \"groups\".");
    }
}

size_t board_recording::open_files() const
{
    // A document that is replaced, and its directory.
    constexpr size_t temporary_files = 2;
    const size_t of_truth = session_->scene().is_null() ? 0 : 1;
    return 2 * session_->metadata().items.size() + of_truth + temporary_files;
}

void board_recording::create_files(const std::filesystem::path &directory)
{
    writer_.emplace(directory,
                    session_description{.configuration = source_.configuration,
                                        .metadata = session_->metadata(),
                                        .server = server(),
                                        .source = describe_source(parse_address(source_.address), server()),
                                        .truth = session_->scene()});
    recorder_.emplace(*writer_, session_->metadata(), options_.queue_megabytes << 20U, *loop_);
    stream_.emplace(*session_, std::vector<frame_sink *>{&tally_, &*recorder_}, *loop_);
}

void board_recording::run(const std::function<bool()> &stop)
{
    try
    {
        stream_->run({.frames = options_.frames, .seconds = options_.seconds.value_or(0.0), .stop = stop});
    }
    catch (...)
    {
        failure_ = std::current_exception();
    }
}

std::exception_ptr board_recording::complete_files()
{
    auto late = recorder_->close();
    try
    {
        writer_->finish();
        finished_ = true;
        return late;
    }
    catch (...)
    {
        return late ? late : std::current_exception();
    }
}

void board_recording::note(const std::exception_ptr &failure)
{
    failure_ = failure_ ? failure_ : failure;
}

std::exception_ptr board_recording::failure() const
{
    return failure_ ? with_remains(failure_, *writer_, finished_) : nullptr;
}

finished_recording board_recording::result() const
{
    return {.writer = *writer_,
            .recorder = *recorder_,
            .stream = *stream_,
            .tally = tally_,
            .source = *session_,
            .simulated = is_simulated(server()),
            .frames_reached = options_.frames > 0 && stream_->frames() >= options_.frames,
            .items = list_items(source_.configuration)};
}

std::string board_recording::warnings() const
{
    return short_warnings(tally_, session_->nominal_rate()) +
           (session_->lost() ? ", link lost, connecting again" : "");
}

} // namespace vantor
