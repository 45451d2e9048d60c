/** @file
 * A server's session as a source of frames.
 */
#ifndef VANTOR_SESSION_SOURCE_H
#define VANTOR_SESSION_SOURCE_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/client.h"
#include "vantor/errors.h"
#include "vantor/event_loop.h"
#include "vantor/frame_source.h"
#include "vantor/truth_file.h"

namespace vantor
{

/** What a session_source does when a session cannot go on as it is. */
struct session_policy
{
    bool recalibrate = false; /**< calibrate again when a sensor asks for it */
    bool reconnect = false;   /**< connect again when the link is lost, as often as necessary */
};

class clock_watch;

/**
 * The frames of a session of a server, with their times in UTC. A damaged message counts as a missing frame
 * and does not end the stream.
 */
class session_source : public frame_source
{
public:
    /**
     * Sets up the session.
     *
     * @param server         a connected client, which must outlive this object
     * @param configuration  the configuration document
     * @param policy         when to begin a new segment instead of ending the stream
     * @param loop           the loop of the client; must outlive this object
     * @param truth          the truth of a simulated server, which is added to the frames; null if there is
     *                       none. Must outlive this object
     * @throws bad_recording if the truth is not that of the server
     * @throws the exceptions of client::configure
     */
    session_source(client &server, nlohmann::json configuration, session_policy policy, event_loop &loop,
                   truth_file *truth = nullptr);
    session_source(const session_source &) = delete;
    session_source &operator=(const session_source &) = delete;
    session_source(session_source &&) = delete;
    session_source &operator=(session_source &&) = delete;
    ~session_source() override;

    void start() override;

    /**
     * Like frame_source::receive.
     *
     * Connects or calibrates again if necessary, and then takes longer than the time-out.
     *
     * @throws timeout_error if no frame has arrived for 10 seconds, or for 3 frame periods and 5 seconds if
     *         that is longer
     * @throws bad_message if only damaged messages have arrived for that time
     * @throws protocol_error if the server measures something else after connecting again
     * @throws the other exceptions of client
     */
    std::optional<frame> receive(std::chrono::milliseconds timeout) override;

    /** Like frame_source::end; counts the frames that are dropped. Throws connection_lost if the link is
     * lost. */
    void end() override;
    void end_promptly() override;

    [[nodiscard]] const segment &current_segment() const noexcept override
    {
        return segment_;
    }

    /**
     * Has the sensors calibrated again, whatever the policy: the next receive() ends the session, and begins
     * one with new calibrations as a new segment. Can also be called by work of the loop while receive()
     * waits.
     */
    void request_calibration() noexcept
    {
        calibration_due_ = true;
    }

    /**
     * Asks the server for its statistics, also while it streams. Frames that arrive before the answer are
     * received afterwards. Not while receive() waits.
     *
     * @return the answer of the server; nothing if the link is lost
     * @throws the exceptions of receive()
     */
    std::optional<nlohmann::json> stats();

    /** The configuration document of the current session: without calibrations if it has made its own. */
    [[nodiscard]] const nlohmann::json &configuration() const noexcept
    {
        return configuration_;
    }

    /** The metadata of the session in which the last frame was measured. */
    [[nodiscard]] const session_metadata &metadata() const noexcept
    {
        return *metadata_;
    }

    /** Frames per second that are due; 0 if unknown. */
    [[nodiscard]] double nominal_rate() const noexcept
    {
        return rate_;
    }

    /**
     * Frames per second that the configuration requests, if the server measures at another rate: by more than
     * 1 % and a tick. Otherwise 0.
     */
    [[nodiscard]] double refused_rate() const noexcept;

    /** Whether the server has a clock; without one, missing frames are not known. */
    [[nodiscard]] bool has_clock() const noexcept
    {
        return ticks_per_second_ > 0.0;
    }

    /**
     * Number of frames that were due after the last one that was received, and before the end: those that
     * arrived too late, and those that the server left out. Only after the end; 0 if the link was lost or the
     * server did not answer in time.
     */
    [[nodiscard]] uint64_t due_at_end() const noexcept
    {
        return due_at_end_;
    }

    /** Whether the server has answered at the end, so that due_at_end() is known. */
    [[nodiscard]] bool end_known() const noexcept
    {
        return end_known_;
    }

    /** Scene, seed, clock and sensors of the simulator in the first session, as session_description::truth;
     * null without a truth. */
    [[nodiscard]] const nlohmann::json &scene() const noexcept
    {
        return scene_;
    }

    /** Number of items of frames whose truth was to be found, but is missing. */
    [[nodiscard]] uint64_t truth_missing() const noexcept
    {
        return truth_ == nullptr ? 0 : truth_->missing();
    }

    /** Why the truth of the last session without one is missing; empty if all have it. */
    [[nodiscard]] const std::string &truth_fault() const noexcept
    {
        return truth_fault_;
    }

    /** How often the server's clock contradicted itself: times in UTC before that may be wrong. */
    [[nodiscard]] unsigned clock_contradictions() const noexcept;

    /** Whether the link is lost, and has not been connected again. */
    [[nodiscard]] bool lost() const noexcept
    {
        return lost_;
    }

    /** Number of damaged messages. */
    [[nodiscard]] uint64_t damaged() const noexcept
    {
        return damaged_messages_;
    }

private:
    using clock = std::chrono::steady_clock;

    void configure();
    void begin_stream();
    std::nullopt_t note_lost_link();
    void note_damage(const bad_message &fault, clock::duration span);
    template <typename request_t> std::invoke_result_t<request_t> ask(request_t request);
    void finish_stream(std::optional<std::chrono::milliseconds> timeout);
    void stop(std::optional<std::chrono::milliseconds> timeout);
    void stop_for_calibration();
    void keep_measured(frame &&received);
    frame take_measured();
    void calibrate_again();
    void connect_again(std::chrono::milliseconds wait);
    void begin_segment(const char *reason);
    void check_session(const session_metadata &before) const;
    [[nodiscard]] double gap_before(const frame &received, clock::time_point now) const;
    std::optional<frame> wait_for_frame(std::chrono::milliseconds timeout);
    std::optional<frame> poll(std::chrono::milliseconds timeout);
    bool frame_progressed();
    [[nodiscard]] bool silent_for(clock::duration span) const;
    [[nodiscard]] std::string describe_silence() const;
    void note_frame(frame &received);
    nlohmann::json begin_truth();
    void continue_truth();
    void add_truth(frame &received) const;

    client &server_;
    nlohmann::json configuration_;
    session_policy policy_;
    event_loop &loop_;
    std::unique_ptr<clock_watch> clock_watch_;
    truth_file *truth_;               /**< null without a truth */
    std::vector<unsigned> sensors_;   /**< of each item; empty without a truth */
    nlohmann::json scene_;            /**< null without a truth */
    std::string truth_fault_;         /**< why the truth of a session is missing */
    std::string sensor_;              /**< of the server */
    std::optional<board_info> board_; /**< of the server */
    double ticks_per_second_;         /**< of the server */
    std::shared_ptr<const session_metadata> metadata_;
    double rate_ = 0.0; /**< nominal; 0 if unknown */
    segment segment_;
    std::optional<std::string> resumed_; /**< why a segment has begun of which no frame has arrived yet */
    bool lost_ = false;                  /**< the link is lost */
    bool asked_ = false;                 /**< the last frame asked for a calibration */
    bool calibration_due_ = false;       /**< the next session begins with new calibrations, soon */
    bool stopped_ = false;               /**< for a calibration */
    std::deque<frame> measured_;         /**< frames that arrived before an answer */
    uint64_t measured_bytes_ = 0;        /**< of their samples */
    bool lost_before_ = false;           /**< the link was lost before the current segment */
    std::optional<uint32_t> last_tick_;  /**< of the last frame */
    clock::time_point last_frame_;
    clock::duration silence_{};    /**< time spent waiting since a frame progressed */
    size_t missing_bytes_ = 0;     /**< of the current frame, when it last progressed */
    uint64_t earlier_missing_ = 0; /**< frames missing in earlier segments */
    uint64_t missing_ = 0;         /**< frames missing in all segments */
    uint64_t due_at_end_ = 0;
    bool end_known_ = true; /**< the server has answered "stop", if it was sent */
    uint64_t damaged_messages_ = 0;
    std::optional<std::string> damage_; /**< what was wrong with the last message, if it was damaged */
};

} // namespace vantor

#endif
