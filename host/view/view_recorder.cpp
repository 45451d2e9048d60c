/** @file
 * Recordings that viewers start and stop.
 */
#include "view/view_recorder.h"

#include <exception>
#include <utility>

#include "recording/number_text.h"
#include "vantor/errors.h"

namespace vantor
{

std::string recording_outcome::text() const
{
    return "Recorded " + counted(frames, "frame") + " to " + directory.string() + ", " +
           std::to_string(missing) + " missing." + (failure.empty() ? "" : " Then it failed: " + failure);
}

void view_recorder::start(const std::filesystem::path &directory, const session_description &session,
                          recording_start start)
{
    running_ =
        std::make_shared<recording>(recording_writer(directory, session, start), session.metadata, loop_);
}

void view_recorder::stop(outcome_handler done)
{
    if (!running_)
    {
        return;
    }
    tasks_.start([ended = running_, done = std::move(done)] {
        const auto outcome = finish(*ended);
        return [outcome, done] { done(outcome); };
    });
    running_.reset();
}

nlohmann::ordered_json view_recorder::state() const
{
    if (!running_)
    {
        return nullptr;
    }
    const auto written = running_->sink.written();
    return {{"directory", running_->writer.directory().string()},
            {"frames", written.frames},
            {"missing", written.missing},
            {"bytes", written.bytes},
            {"failure", running_->failure.empty() ? nlohmann::ordered_json()
                                                  : nlohmann::ordered_json(running_->failure)}};
}

bool view_recorder::ready() const
{
    return !running_ || running_->sink.ready();
}

void view_recorder::check()
{
    guard([](recording_sink &sink) { sink.check(); });
}

void view_recorder::begin(const segment &next)
{
    guard([&](recording_sink &sink) { sink.begin(next); });
}

void view_recorder::add(const std::shared_ptr<const frame> &received)
{
    guard([&](recording_sink &sink) { sink.add(received); });
}

/** Waits until all frames are written, and writes the final documents. */
recording_outcome view_recorder::finish(recording &ended)
{
    recording_outcome outcome{.directory = ended.writer.directory(), .failure = {}};
    try
    {
        const auto failure = ended.sink.close();
        outcome.frames = ended.writer.frames();
        outcome.missing = ended.writer.missing();
        if (failure)
        {
            std::rethrow_exception(failure);
        }
        ended.writer.finish();
    }
    catch (const error &reason)
    {
        outcome.failure = reason.what();
    }
    outcome.streams = ended.writer.streams();
    return outcome;
}

/** Passes something to the recording, unless it has failed; notes the failure. */
template <typename action_t> void view_recorder::guard(const action_t &action)
{
    if (!running_ || !running_->failure.empty())
    {
        return;
    }
    try
    {
        action(running_->sink);
    }
    catch (const error &reason)
    {
        running_->failure = reason.what();
    }
}

} // namespace vantor
