/** @file
 * Serves a recording to a host, like a server that measures.
 */
#ifndef VANTOR_REPLAY_SERVER_H
#define VANTOR_REPLAY_SERVER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include "hub/playback_source.h"
#include "vantor/event_loop.h"
#include "vantor/link.h"
#include "vantor/recording_reader.h"

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
     * @param loop       the loop of the link
     * @param speed      how much faster than measured the frames are sent; infinite for as fast as possible
     */
    replay_server(recording_reader &recording, link &host, event_loop &loop, double speed = 1.0);

    /**
     * Serves the host until it disconnects. A client whose first line is an HTTP request is disconnected.
     *
     * @param stop  called at least ten times per second; true ends the service
     * @throws connection_lost if the host disconnects
     * @throws timeout_error if the host accepts no data for 10 seconds
     * @throws cancelled if waiting was cancelled
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
    void send(const frame &played);
    [[nodiscard]] std::chrono::milliseconds patience();

    recording_reader &recording_;
    link &host_;
    playback_source source_;
    state state_ = state::idle;
    std::string input_;      /**< the line that is being received */
    bool first_line_ = true; /**< no line has been received */
    bool refused_ = false;   /**< the client sends HTTP */
    uint64_t frames_sent_ = 0;
};

} // namespace vantor

#endif
