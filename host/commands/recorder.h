/** @file
 * Moves frames from a server into a recording.
 */
#ifndef VANTOR_RECORDER_H
#define VANTOR_RECORDER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "recording/item_statistics.h"
#include "recording/recording_writer.h"
#include "vantor/client.h"

namespace vantor
{

/** When a recording ends. */
struct recorder_limits
{
    uint64_t frames = 0;        /**< 0 for no limit */
    double seconds = 0.0;       /**< 0 for no limit */
    std::function<bool()> stop; /**< called at least ten times per second; true ends the recording */
    std::function<void(uint64_t)> progress; /**< called after every frame with the number of frames, if set */
};

/** Moves frames from a server into a recording, and computes statistics. */
class recorder
{
public:
    /**
     * @param source       a client with a configured session
     * @param destination  a recording of the same session
     * @param metadata     the metadata of the session
     * @param rate         frames per second that are due; 0 if unknown
     * @param now          the clock of the source
     */
    recorder(client &source, recording_writer &destination, const session_metadata &metadata, double rate,
             time_source now = std::chrono::steady_clock::now);

    /**
     * Records until a limit is reached. A damaged message counts as lost frames and does not end the
     * recording.
     *
     * @throws the exceptions of client and recording_writer; the recording contains every earlier frame
     */
    void run(const recorder_limits &limits);

    /** Statistics of each item. */
    [[nodiscard]] const std::vector<item_statistics> &statistics() const noexcept
    {
        return statistics_;
    }

    /** Time from the start of the stream to the last frame, in seconds. */
    [[nodiscard]] double seconds() const noexcept
    {
        return seconds_;
    }

    /**
     * Frames per second from the first to the last frame; 0 if fewer than two frames arrived, or all at the
     * same time.
     */
    [[nodiscard]] double measured_rate() const noexcept;

    /** Frames per second that were due; 0 if unknown. */
    [[nodiscard]] double nominal_rate() const noexcept
    {
        return rate_;
    }

    /** The part of the nominal rate that was reached: the share of the frames that are not missing. */
    [[nodiscard]] double share_of_rate() const noexcept;

    /** Whether the recording was ended by recorder_limits::stop. */
    [[nodiscard]] bool interrupted() const noexcept
    {
        return interrupted_;
    }

    /** Number of frames missing between those recorded. */
    [[nodiscard]] uint64_t missing() const noexcept
    {
        return missing_frames_;
    }

    /** Number of damaged messages. */
    [[nodiscard]] unsigned disturbances() const noexcept
    {
        return disturbances_;
    }

private:
    [[nodiscard]] double seconds_since(std::chrono::steady_clock::time_point moment) const;
    bool done(const recorder_limits &limits);
    [[nodiscard]] std::chrono::milliseconds longest_wait(const recorder_limits &limits) const;
    std::optional<frame> receive(std::chrono::milliseconds wait);
    [[nodiscard]] bool silent_too_long() const;
    [[nodiscard]] std::string describe_silence() const;
    bool frame_progressed();
    void store(const frame &received);

    client &source_;
    recording_writer &destination_;
    double rate_; /**< nominal; 0 if unknown */
    time_source now_;
    std::vector<item_statistics> statistics_;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point last_; /**< when a frame or a part of one last arrived */
    size_t missing_ = 0;                         /**< bytes missing from the current frame at that time */
    double seconds_ = 0.0;
    double first_seconds_ = 0.0; /**< seconds() at the first frame */
    uint64_t missing_frames_ = 0;
    unsigned disturbances_ = 0;
    bool interrupted_ = false;
    std::optional<std::string> damage_; /**< what was wrong with the last message, if it was damaged */
};

} // namespace vantor

#endif
