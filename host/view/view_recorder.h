/** @file
 * Recordings that viewers start and stop.
 */
#ifndef VANTOR_VIEW_RECORDER_H
#define VANTOR_VIEW_RECORDER_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/collection_stream.h"
#include "vantor/event_loop.h"
#include "vantor/frame_sink.h"
#include "vantor/recording_sink.h"
#include "vantor/recording_writer.h"
#include "vantor/session_description.h"
#include "view/background_tasks.h"

namespace vantor
{

/** What a recording contains at its end. */
struct recording_outcome
{
    std::filesystem::path directory;
    uint64_t frames = 0;
    uint64_t missing = 0;
    std::string failure; /**< why it ended early or is incomplete; empty if it is complete */
    std::vector<collection_stream> streams = {}; /**< its items */

    /** One sentence that says it all. */
    [[nodiscard]] std::string text() const;
};

/**
 * A sink that records, while a recording is going on. It loses nothing, and holds the source back like a
 * recording_sink. A failure ends the recording, not the stream.
 */
class view_recorder : public frame_sink
{
public:
    using outcome_handler = std::function<void(const recording_outcome &)>;

    /**
     * @param tasks  finishes recordings; must outlive this object
     * @param loop   the loop of the hub; must outlive this object
     */
    view_recorder(background_tasks &tasks, event_loop &loop) noexcept : tasks_(tasks), loop_(loop)
    {
    }

    /** Whether a recording is going on, even if it has failed. */
    [[nodiscard]] bool active() const noexcept
    {
        return running_ != nullptr;
    }

    /**
     * Begins a recording with the next frame.
     *
     * @param directory  must not exist, or must be empty
     * @param session    the present session
     * @param start      whether the next frame is the first one of the stream
     * @throws recording_error if it cannot be created
     */
    void start(const std::filesystem::path &directory, const session_description &session,
               recording_start start);

    /**
     * Ends the recording, if there is one: the frames so far are written on a separate thread.
     *
     * @param done  called by the loop once the recording is complete; must not throw
     */
    void stop(outcome_handler done);

    /** The recording as viewers see it; null if there is none. */
    [[nodiscard]] nlohmann::ordered_json state() const;

    [[nodiscard]] bool ready() const override;
    void check() override;
    void begin(const segment &next) override;
    void add(const std::shared_ptr<const frame> &received) override;

private:
    /** A recording that is going on. */
    struct recording
    {
        recording(recording_writer &&created, const session_metadata &metadata, event_loop &loop)
            : writer(std::move(created)), sink(writer, metadata, default_queue_size, loop)
        {
        }

        recording_writer writer;
        recording_sink sink;
        std::string failure;
    };

    static recording_outcome finish(recording &ended);
    template <typename action_t> void guard(const action_t &action);

    background_tasks &tasks_;
    event_loop &loop_;
    std::shared_ptr<recording> running_;
};

} // namespace vantor

#endif
