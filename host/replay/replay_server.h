/** @file
 * Serves a recording to a host as if it were a server that measures.
 */
#ifndef VANTOR_REPLAY_SERVER_H
#define VANTOR_REPLAY_SERVER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "recording/recording_reader.h"
#include "replay/frame_source.h"
#include "vantor/link.h"
#include "vantor/time_source.h"

namespace vantor
{

/** One host that is served from a recording. Any configuration is answered by the recording's own metadata.
 */
class replay_server
{
public:
    /**
     * @param recording  with at least one frame
     * @param host       the link to the host
     * @param now        the clock for the pace of the frames, by which the link waits
     */
    replay_server(recording_reader &recording, link &host, time_source now = std::chrono::steady_clock::now);

    /**
     * Serves the host until it goes.
     *
     * @param stop  asked at least ten times a second; true ends it
     * @throws connection_lost when the host goes
     * @throws timeout_error when the host takes no more bytes
     * @throws bad_recording when a file cannot be read
     */
    void run(const std::function<bool()> &stop);

    /** Frames sent so far. */
    [[nodiscard]] uint64_t frames_sent() const noexcept
    {
        return frames_sent_;
    }

private:
    /** What a session can be, as in docs/protocol.md. */
    enum class state
    {
        idle,
        configured,
        streaming,
    };

    void receive();
    void obey(const std::string &line);
    void obey_command(const std::string &name, const nlohmann::json &command);
    void obey_session_command(const std::string &name);
    void send(const std::string &bytes);
    void answer(const std::string &command);
    void refuse(const char *code, const char *sentence);
    void identify();
    void configure();
    void start();
    void send_due_frame();
    [[nodiscard]] std::chrono::nanoseconds time_until_due() const;

    recording_reader &recording_;
    link &host_;
    time_source now_;
    frame_source frames_;
    state state_ = state::idle;
    std::string input_; /**< of the line that is being received */
    std::optional<replayed_frame> next_;
    double first_seconds_ = 0.0;                    /**< of the first frame of the stream */
    std::chrono::steady_clock::time_point started_; /**< when the stream began */
    uint64_t frames_sent_ = 0;
};

} // namespace vantor

#endif
