/** @file
 * The viewers of a live view.
 */
#include "view/viewers.h"

#include <algorithm>
#include <utility>

#include "vantor/configuration.h"
#include "view/view_messages.h"
#include "view/view_requests.h"

namespace vantor
{
namespace
{

/** Requests of a viewer that can wait. */
constexpr ptrdiff_t most_requests = 32;

/** Texts that can wait for a viewer; lines of the log are left out earlier. */
constexpr size_t most_texts = 400;
constexpr size_t most_lines = 200;

/** Whether only the last request of this type matters. */
bool replaces_earlier(const std::string &type)
{
    return type == "check" || type == "seek" || type == "speed";
}

} // namespace

viewers::viewers(const view_address &where, event_loop &loop)
    : server_(where, make_view_token(), static_cast<view_handler &>(*this), loop)
{
}

void viewers::begin_session(const nlohmann::ordered_json &session)
{
    session_ = session;
    for (auto &[number, who] : viewers_)
    {
        who.frames.clear();
        queue_text(number, who, session_);
    }
}

void viewers::send(uint64_t number, const nlohmann::ordered_json &message)
{
    if (const auto found = viewers_.find(number); found != viewers_.end())
    {
        queue_text(number, found->second, message);
    }
}

void viewers::send_log(const std::string &level, const std::string &text)
{
    for (auto &[number, who] : viewers_)
    {
        if (who.texts.size() >= most_lines)
        {
            ++who.lost_lines;
            continue;
        }
        if (const auto lost = std::exchange(who.lost_lines, 0); lost > 0)
        {
            queue_text(number, who, log_message("warning", lost_lines_text(lost)));
        }
        queue_text(number, who, log_message(level, text));
    }
}

std::optional<viewer_request> viewers::next_request()
{
    if (requests_.empty())
    {
        return std::nullopt;
    }
    auto first = std::move(requests_.front());
    requests_.pop_front();
    return first;
}

void viewers::end(const std::string &reason)
{
    server_.end(reason);
}

void viewers::begin(const segment & /*next*/)
{
}

void viewers::add(const std::shared_ptr<const frame> &received)
{
    if (viewers_.empty())
    {
        return;
    }
    const auto encoded = std::make_shared<const std::string>(encode_frame(*received));
    for (auto &[number, who] : viewers_)
    {
        who.frames.add(encoded);
        send_next(number, who);
    }
}

void viewers::opened(uint64_t number)
{
    auto &who = viewers_[number];
    if (controller_ == 0)
    {
        controller_ = number;
    }
    auto hello = hello_;
    hello["viewer"] = number;
    hello["viewers"] = viewers_.size();
    hello["controls"] = controls(number);
    queue_text(number, who, hello);
    if (!session_.is_null())
    {
        queue_text(number, who, session_);
    }
    who.state_due = !state_now_.is_null();
}

void viewers::received(uint64_t number, std::string &&text)
{
    std::string type;
    try
    {
        auto document = parse_json_text(text, "The message");
        type = request_type(document);
        accept_request({.viewer = number, .type = type, .document = std::move(document)});
    }
    catch (const error &fault)
    {
        send(number, failed_message(type, fault.what()));
    }
}

void viewers::sent(uint64_t number)
{
    auto &who = viewers_.at(number);
    who.sending = false;
    send_next(number, who);
}

void viewers::closed(uint64_t number)
{
    viewers_.erase(number);
    std::erase_if(requests_, [&](const viewer_request &request) { return request.viewer == number; });
    if (controls(number))
    {
        controller_ = 0;
    }
}

void viewers::tick()
{
    if (!state_)
    {
        return;
    }
    state_now_ = state_();
    for (auto &[number, who] : viewers_)
    {
        who.state_due = true;
        send_next(number, who);
    }
}

/** Executes a request that concerns only the viewer itself; keeps others for next_request(). */
void viewers::accept_request(viewer_request &&request)
{
    const auto number = request.viewer;
    if (request.type == "every")
    {
        set_every(viewers_.at(number), request);
        return;
    }
    if (request.type == "take_control")
    {
        take_control(number);
        return;
    }
    if (replaces_earlier(request.type))
    {
        std::erase_if(requests_, [&](const viewer_request &earlier) {
            return earlier.viewer == number && earlier.type == request.type;
        });
    }
    requests_.push_back(std::move(request));
    const auto waiting = std::count_if(requests_.begin(), requests_.end(),
                                       [&](const viewer_request &one) { return one.viewer == number; });
    if (waiting > most_requests)
    {
        server_.close(number, "Too many requests wait: send the next one after the answer.");
    }
}

/** Lets a viewer control instead of another one. */
void viewers::take_control(uint64_t number)
{
    controller_ = number;
    send(number, done_message("take_control", "You control now."));
    tick();
}

/** Lets a viewer receive only some of the frames. */
void viewers::set_every(viewer &who, const viewer_request &request)
{
    constexpr double most = 1000.0;
    const auto frames = static_cast<uint64_t>(number_in(request.document, "frames", 1.0, most));
    who.frames.set_every(frames);
    queue_text(request.viewer, who, done_message("every", "One of " + std::to_string(frames) + " frames."));
}

/** Adds a text to what waits for a viewer, which is closed if it does not read. */
void viewers::queue_text(uint64_t number, viewer &who, const nlohmann::ordered_json &message)
{
    if (who.texts.size() >= most_texts)
    {
        server_.close(number, "This viewer does not read its messages.");
        return;
    }
    who.texts.push_back(std::make_shared<const std::string>(message_text(message)));
    send_next(number, who);
}

/** Sends what waits for a viewer, unless it is still receiving: texts, then the state, then frames. */
void viewers::send_next(uint64_t number, viewer &who)
{
    if (who.sending)
    {
        return;
    }
    auto kind = view_message::text;
    std::shared_ptr<const std::string> message;
    if (!who.texts.empty())
    {
        message = std::move(who.texts.front());
        who.texts.pop_front();
    }
    else if (std::exchange(who.state_due, false))
    {
        message = std::make_shared<const std::string>(state_text(number, who));
    }
    else
    {
        kind = view_message::binary;
        message = who.frames.take();
    }
    if (message)
    {
        who.sending = true;
        server_.send(number, kind, std::move(message));
    }
}

/** The state, with what is the viewer's own. */
std::string viewers::state_text(uint64_t number, const viewer &who) const
{
    auto state = state_now_;
    state["dropped"] = who.frames.dropped();
    state["viewers"] = viewers_.size();
    state["controls"] = controls(number);
    state["controller"] = controller_ == 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(controller_);
    return message_text(state);
}

} // namespace vantor
