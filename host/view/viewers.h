/** @file
 * The viewers of a live view: what they receive, what they ask for, and which of them controls.
 */
#ifndef VANTOR_VIEWERS_H
#define VANTOR_VIEWERS_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "vantor/event_loop.h"
#include "vantor/frame_sink.h"
#include "view/view_server.h"
#include "view/viewer_queue.h"

namespace vantor
{

/** What a viewer asks for. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct viewer_request
{
    uint64_t viewer = 0;
    std::string type;
    nlohmann::json document; /**< the complete message: an object */
};

/**
 * The viewers of a live view: a sink that never holds the source back. Frames that a viewer does not accept
 * in time are dropped, the oldest ones first, and counted.
 *
 * The first viewer controls; the others watch, until they take control.
 */
class viewers : public frame_sink, private view_handler
{
public:
    /** @param server  serves them as those of its next board; must outlive this object */
    explicit viewers(view_server &server);

    /** Sets what every viewer receives when it connects, except its own number and rights. */
    void set_greeting(nlohmann::ordered_json hello)
    {
        hello_ = std::move(hello);
    }

    /** Sets what returns the state that viewers receive four times a second; it must not throw. */
    void set_state(std::function<nlohmann::ordered_json()> state)
    {
        state_ = std::move(state);
    }

    /** Announces a session to all present and future viewers; drops the frames of the one before. */
    void begin_session(const nlohmann::ordered_json &session);

    /** Drops the frames that wait for viewers, because others are shown instead; they do not count as
     * dropped. */
    void skip_frames();

    /** Sends a message to a viewer, if it is still connected. */
    void send(uint64_t number, const nlohmann::ordered_json &message);

    /** Sends a message to all viewers. */
    void broadcast(const nlohmann::ordered_json &message);

    /** Number of viewers. */
    [[nodiscard]] size_t count() const noexcept
    {
        return viewers_.size();
    }

    /** Sends a line of the log to all viewers. */
    void send_log(const std::string &level, const std::string &text);

    /** Whether a viewer has asked for something that next_request() has not returned. */
    [[nodiscard]] bool has_request() const noexcept
    {
        return !requests_.empty();
    }

    /** Returns what was asked for first. */
    std::optional<viewer_request> next_request();

    /** Whether a viewer controls. */
    [[nodiscard]] bool controls(uint64_t number) const noexcept
    {
        return controller_ == number;
    }

    void begin(const segment &next) override;
    void add(const std::shared_ptr<const frame> &received) override;

private:
    /** A request that waits: as text, which needs much less memory than the document. */
    struct waiting_request
    {
        uint64_t viewer = 0;
        std::string type;
        std::string text;
    };

    /** A viewer, and what waits for it. */
    struct viewer
    {
        uint64_t name = 0; /**< a number that people see; the others identify connections */
        std::deque<std::shared_ptr<const std::string>> texts; /**< except lines of the log */
        size_t text_bytes = 0;                                /**< of all texts */
        std::deque<std::shared_ptr<const std::string>> lines; /**< of the log */
        viewer_queue frames;
        bool state_due = false;
        bool sending = false;
        bool line_sent = false;  /**< a line was sent since the last frame */
        uint64_t lost_lines = 0; /**< of the log */
    };

    void opened(uint64_t number) override;
    void received(uint64_t number, std::string &&text) override;
    void sent(uint64_t number) override;
    void closed(uint64_t number) override;
    void tick() override;

    [[nodiscard]] uint64_t free_name() const;
    void accept(const viewer_request &request, std::string &&text);
    void queue_request(waiting_request &&request);
    void take_control(uint64_t number);
    void set_every(viewer &who, const viewer_request &request);
    void queue_text(uint64_t number, viewer &who, const nlohmann::ordered_json &message);
    void queue_line(uint64_t number, viewer &who, const std::shared_ptr<const std::string> &line);
    void send_next(uint64_t number, viewer &who);
    static std::shared_ptr<const std::string> next_line_or_frame(viewer &who, view_message &kind);
    [[nodiscard]] std::string state_text(uint64_t number, const viewer &who) const;

    nlohmann::ordered_json hello_;
    nlohmann::ordered_json session_; /**< null if there has been none */
    std::function<nlohmann::ordered_json()> state_;
    nlohmann::ordered_json state_now_;
    std::map<uint64_t, viewer> viewers_;
    uint64_t controller_ = 0; /**< 0 if nobody controls */
    std::deque<waiting_request> requests_;
    std::shared_ptr<const frame> last_; /**< of the session, for viewers that open the page later */
    view_server &server_;
    size_t board_; /**< from 1 */
};

} // namespace vantor

#endif
