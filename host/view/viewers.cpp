/** @file
 * The viewers of a live view.
 */
#include "view/viewers.h"

#include <algorithm>
#include <set>
#include <utility>

#include "vantor/configuration.h"
#include "view/view_messages.h"
#include "view/view_requests.h"

namespace vantor
{
namespace
{

/** Requests of a viewer that can wait; one of any size can. */
constexpr size_t most_requests = 8;
constexpr size_t most_request_bytes = 1U << 20U;

/** Texts, and lines of the log, that can wait for a viewer; one text of any size can. */
constexpr size_t most_texts = 200;
constexpr size_t most_text_bytes = 4U << 20U;
constexpr size_t most_lines = 200;

/** The longest text of a line of the log, in bytes: ten times what a server sends. */
constexpr size_t longest_line = 2500;

/** Removes and returns the first element; null if there is none. */
std::shared_ptr<const std::string> take_first(std::deque<std::shared_ptr<const std::string>> &queue)
{
    if (queue.empty())
    {
        return nullptr;
    }
    auto first = std::move(queue.front());
    queue.pop_front();
    return first;
}

/** Parses a request. */
nlohmann::json parse_request(const std::string &text)
{
    return parse_json_text(text, "The message");
}

/** A frame, as viewers receive it. */
std::shared_ptr<const viewer_frame> viewer_frame_of(const frame &received)
{
    const auto truth = received.truth() ? message_text(truth_message(*received.truth())) : std::string();
    return std::make_shared<const viewer_frame>(viewer_frame{encode_frame(received), truth});
}

/** Whether only the last request of this type matters. */
bool replaces_earlier(const std::string &type)
{
    return type == "check" || type == "seek" || type == "speed";
}

} // namespace

viewers::viewers(view_server &server) : server_(server), board_(server.boards() + 1)
{
    server_.add_board(*this);
}

void viewers::begin_session(const nlohmann::ordered_json &session)
{
    session_ = session;
    last_.reset();
    for (auto &[number, who] : viewers_)
    {
        who.frames.clear();
        queue_text(number, who, session_);
    }
}

void viewers::skip_frames()
{
    for (auto &[number, who] : viewers_)
    {
        who.frames.clear();
    }
}

void viewers::send(uint64_t number, const nlohmann::ordered_json &message)
{
    if (const auto found = viewers_.find(number); found != viewers_.end())
    {
        queue_text(number, found->second, message);
    }
}

void viewers::broadcast(const nlohmann::ordered_json &message)
{
    for (auto &[number, who] : viewers_)
    {
        queue_text(number, who, message);
    }
}

void viewers::send_log(const std::string &level, const std::string &text)
{
    const auto line =
        std::make_shared<const std::string>(message_text(log_message(level, text.substr(0, longest_line))));
    for (auto &[number, who] : viewers_)
    {
        queue_line(number, who, line);
    }
}

std::optional<viewer_request> viewers::next_request()
{
    if (requests_.empty())
    {
        return std::nullopt;
    }
    const auto first = std::move(requests_.front());
    requests_.pop_front();
    return viewer_request{.viewer = first.viewer, .type = first.type, .document = parse_request(first.text)};
}

void viewers::begin(const segment & /*next*/)
{
}

void viewers::add(const std::shared_ptr<const frame> &received)
{
    last_ = received;
    if (viewers_.empty())
    {
        return;
    }
    const auto encoded = viewer_frame_of(*received);
    for (auto &[number, who] : viewers_)
    {
        who.frames.add(encoded);
        send_next(number, who);
    }
}

void viewers::opened(uint64_t number)
{
    const auto name = free_name();
    auto &who = viewers_[number];
    who.name = name;
    if (controller_ == 0)
    {
        controller_ = number;
    }
    auto hello = hello_;
    hello["viewer"] = name;
    hello["viewers"] = viewers_.size();
    hello["controls"] = controls(number);
    hello["board"] = board_;
    hello["boards"] = server_.boards();
    queue_text(number, who, hello);
    if (!session_.is_null())
    {
        queue_text(number, who, session_);
    }
    if (last_)
    {
        who.frames.add(viewer_frame_of(*last_));
    }
    who.state_due = !state_now_.is_null();
}

/** The lowest number that no viewer has as its name. */
uint64_t viewers::free_name() const
{
    std::set<uint64_t> used;
    for (const auto &[number, who] : viewers_)
    {
        used.insert(who.name);
    }
    uint64_t name = 1;
    while (used.contains(name))
    {
        ++name;
    }
    return name;
}

void viewers::received(uint64_t number, std::string &&text)
{
    std::string type;
    try
    {
        auto document = parse_request(text);
        type = request_type(document);
        accept({.viewer = number, .type = type, .document = std::move(document)}, std::move(text));
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
    std::erase_if(requests_, [&](const waiting_request &request) { return request.viewer == number; });
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
void viewers::accept(const viewer_request &request, std::string &&text)
{
    if (request.type == "every")
    {
        set_every(viewers_.at(request.viewer), request);
    }
    else if (request.type == "take_control")
    {
        take_control(request.viewer);
    }
    else
    {
        queue_request({.viewer = request.viewer, .type = request.type, .text = std::move(text)});
    }
}

/** Adds a request to those that wait. A viewer that sends more than can wait is closed. */
void viewers::queue_request(waiting_request &&request)
{
    const auto number = request.viewer;
    const auto &type = request.type;
    if (replaces_earlier(type))
    {
        std::erase_if(requests_, [&](const waiting_request &earlier) {
            return earlier.viewer == number && earlier.type == type;
        });
    }
    size_t waiting = 0;
    size_t bytes = request.text.size();
    for (const auto &one : requests_)
    {
        waiting += one.viewer == number ? 1 : 0;
        bytes += one.viewer == number ? one.text.size() : 0;
    }
    if (waiting >= most_requests || (waiting > 0 && bytes > most_request_bytes))
    {
        server_.close(number, "Too many requests wait: send the next one after the answer.");
        return;
    }
    requests_.push_back(std::move(request));
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
    auto text = std::make_shared<const std::string>(message_text(message));
    const bool is_full = who.texts.size() >= most_texts || who.text_bytes + text->size() > most_text_bytes;
    if (is_full && !who.texts.empty())
    {
        server_.close(number, "This viewer does not read its messages.");
        return;
    }
    who.text_bytes += text->size();
    who.texts.push_back(std::move(text));
    send_next(number, who);
}

/** Adds a line of the log to what waits for a viewer, unless too many wait. */
void viewers::queue_line(uint64_t number, viewer &who, const std::shared_ptr<const std::string> &line)
{
    if (who.lines.size() >= most_lines)
    {
        ++who.lost_lines;
        return;
    }
    if (const auto lost = std::exchange(who.lost_lines, 0); lost > 0)
    {
        who.lines.push_back(
            std::make_shared<const std::string>(message_text(log_message("warning", lost_lines_text(lost)))));
    }
    who.lines.push_back(line);
    send_next(number, who);
}

/** Sends what waits for a viewer, unless it is still receiving: texts, then the state, then the rest. */
void viewers::send_next(uint64_t number, viewer &who)
{
    if (who.sending)
    {
        return;
    }
    auto kind = view_message::text;
    auto message = take_first(who.texts);
    who.text_bytes -= message ? message->size() : 0;
    if (!message && std::exchange(who.state_due, false))
    {
        message = std::make_shared<const std::string>(state_text(number, who));
    }
    if (!message)
    {
        message = next_line_or_frame(who, kind);
    }
    if (message)
    {
        who.sending = true;
        server_.send(number, kind, std::move(message));
    }
}

/** Takes a line of the log and a frame in turn, so that many lines do not keep frames from a slow viewer. */
std::shared_ptr<const std::string> viewers::next_line_or_frame(viewer &who, view_message &kind)
{
    auto line = who.line_sent ? nullptr : take_first(who.lines);
    if (line)
    {
        who.line_sent = true;
        return line;
    }
    who.line_sent = false;
    if (auto message = who.frames.take(kind))
    {
        return message;
    }
    return take_first(who.lines);
}

/** The state, with what is the viewer's own. */
std::string viewers::state_text(uint64_t number, const viewer &who) const
{
    auto state = state_now_;
    state["dropped"] = who.frames.dropped();
    state["viewers"] = viewers_.size();
    state["controls"] = controls(number);
    const auto controller = viewers_.find(controller_);
    state["controller"] = controller == viewers_.end() ? nlohmann::ordered_json()
                                                       : nlohmann::ordered_json(controller->second.name);
    return message_text(state);
}

} // namespace vantor
