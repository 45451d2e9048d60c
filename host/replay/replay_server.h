/** @file
 * Serves a recording to a host, like a server that measures.
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
#include "replay/message_source.h"
#include "vantor/link.h"
#include "vantor/time_source.h"

namespace vantor
{

/**
 * Serves a recording to one host. It accepts a configuration that measures what was recorded, and answers
 * with the metadata of the recording. "identify" contains the configuration of the recording.
 */
class replay_server
{
public:
    /**
     * @param recording  a recording with at least one frame
     * @param host       the link to the host
     * @param speed      how much faster than measured the frames are sent; infinite for as fast as possible
     * @param now        the clock for the pace of the frames and for the link
     */
    replay_server(recording_reader &recording, link &host, double speed = 1.0,
                  time_source now = std::chrono::steady_clock::now);

    /**
     * Serves the host until it disconnects.
     *
     * @param stop  called at least ten times per second; true ends the service
     * @throws connection_lost if the host disconnects
     * @throws timeout_error if the host stops reading
     * @throws bad_recording if a file cannot be read
     */
    void run(const std::function<bool()> &stop);

    /** Number of frames sent so far. */
    [[nodiscard]] uint64_t frames_sent() const noexcept
    {
        return frames_sent_;
    }

private:
    /** The states of a session, as in docs/protocol.md. */
    enum class state
    {
        idle,
        configured,
        streaming,
    };

    void receive();
    void execute_line(const std::string &line);
    void execute(const std::string &name, const nlohmann::json &command);
    void execute_session_command(const std::string &name, const nlohmann::json &command);
    void send(const std::string &bytes);
    void answer(const std::string &command);
    void refuse(const char *code, const std::string &sentence);
    void identify();
    void configure(const nlohmann::json &configuration);
    void start();
    void send_due_frame();
    [[nodiscard]] std::chrono::nanoseconds time_until_due() const;

    recording_reader &recording_;
    link &host_;
    double speed_;
    time_source now_;
    message_source frames_;
    state state_ = state::idle;
    std::string input_; /**< the line that is being received */
    std::optional<replayed_frame> next_;
    double first_seconds_ = 0.0;                    /**< time of the first frame of the stream */
    std::chrono::steady_clock::time_point started_; /**< when the stream began */
    uint64_t frames_sent_ = 0;
};

} // namespace vantor

#endif
