/** @file
 * Serves a recording to a host.
 */
#include "replay/replay_server.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "replay/configuration_difference.h"
#include "vantor/client.h"
#include "version.h"

namespace vantor
{
namespace
{

/** How long to wait for a command if no frame is due. */
constexpr std::chrono::milliseconds command_patience{100};

/** How long to wait while a host does not read. */
constexpr std::chrono::milliseconds write_timeout{60000};

/** Longest command line. */
constexpr size_t longest_line = 1 << 20;

} // namespace

replay_server::replay_server(recording_reader &recording, link &host, double speed, time_source now)
    : recording_(recording), host_(host), speed_(speed), now_(std::move(now)), frames_(recording)
{
}

void replay_server::run(const std::function<bool()> &stop)
{
    while (!stop())
    {
        send_due_frame();
        receive();
    }
}

/** Sends the next frame of the stream if it is due. */
void replay_server::send_due_frame()
{
    if (state_ != state::streaming)
    {
        return;
    }
    if (!next_)
    {
        next_ = frames_.next();
    }
    if (time_until_due().count() == 0)
    {
        send(next_->bytes);
        next_.reset();
        ++frames_sent_;
    }
}

/** Time until the next frame is due, but at most the waiting time for a command; 0 if it is due. */
std::chrono::nanoseconds replay_server::time_until_due() const
{
    using seconds = std::chrono::duration<double>;
    const double elapsed = seconds(now_() - started_).count();
    const double left = next_ ? (next_->seconds - first_seconds_) / speed_ - elapsed : 0.0;
    return std::chrono::round<std::chrono::nanoseconds>(
        seconds(std::max(0.0, std::min(seconds(command_patience).count(), left))));
}

/** Waits for commands, at most until the next frame is due, and executes them. */
void replay_server::receive()
{
    const auto wait = state_ == state::streaming
                          ? std::chrono::ceil<std::chrono::milliseconds>(time_until_due())
                          : command_patience;
    std::array<std::byte, 4096> bytes{};
    const auto count = host_.read_some(bytes, wait);
    for (size_t i = 0; i < count; ++i)
    {
        const char c = static_cast<char>(bytes[i]);
        if (c != '\n')
        {
            input_ += c;
            continue;
        }
        execute_line(input_);
        input_.clear();
    }
    if (input_.size() > longest_line)
    {
        input_.clear();
        refuse("line_too_long", "Send shorter commands.");
    }
}

/** Executes one line. */
void replay_server::execute_line(const std::string &line)
{
    if (line.find_first_not_of(" \r") == std::string::npos)
    {
        return;
    }
    const auto command = nlohmann::json::parse(line, nullptr, false);
    if (command.is_discarded())
    {
        refuse("bad_json", "Send commands as JSON, one object per line.");
        return;
    }
    const auto name = command.is_object() ? command.value("command", nlohmann::json()) : nlohmann::json();
    if (!name.is_string())
    {
        refuse("bad_command", "Send an object with a string \"command\".");
        return;
    }
    execute(name.get<std::string>(), command);
}

/** Executes a command that is allowed in every state; passes on the others. */
void replay_server::execute(const std::string &name, const nlohmann::json &command)
{
    if (name == "identify")
    {
        identify();
    }
    else if (name == "ping" || name == "log")
    {
        answer(name);
    }
    else if (name == "end")
    {
        state_ = state::idle;
        answer(name);
    }
    else if (name == "stats")
    {
        send(nlohmann::json(
                 {{"status", "ok"}, {"command", "stats"}, {"payload_size", 0}, {"frames", frames_sent_}})
                 .dump() +
             "\n");
    }
    else if (name == "baudrate")
    {
        refuse("baudrate_fixed", "A replayed recording has no baud rate to change.");
    }
    else if (name == "configure" && !command.contains("configuration"))
    {
        refuse("bad_argument", "Send the configuration document as \"configuration\".");
    }
    else
    {
        execute_session_command(name, command);
    }
}

/** Executes a command that is allowed in one state only. */
void replay_server::execute_session_command(const std::string &name, const nlohmann::json &command)
{
    static const std::set<std::string> names = {"configure", "start", "stop", "frame"};
    if (!names.contains(name))
    {
        refuse("unknown_command", "Use a command of the protocol.");
    }
    else if (name == "configure" && state_ == state::idle)
    {
        configure(command["configuration"]);
    }
    else if (name == "start" && state_ == state::configured)
    {
        start();
    }
    else if (name == "frame" && state_ == state::configured)
    {
        send(frames_.next().bytes);
        ++frames_sent_;
    }
    else if (name == "stop" && state_ == state::streaming)
    {
        state_ = state::configured;
        answer(name);
    }
    else
    {
        refuse("wrong_state", "Configure an idle server, then start or ask for a frame, then stop.");
    }
}

/** Sends bytes. */
void replay_server::send(const std::string &bytes)
{
    host_.write(std::as_bytes(std::span(bytes)), write_timeout);
}

/** Reports that a command was executed. */
void replay_server::answer(const std::string &command)
{
    send(nlohmann::ordered_json({{"status", "ok"}, {"command", command}, {"payload_size", 0}}).dump() + "\n");
}

/** Reports that a command was refused. */
void replay_server::refuse(const char *code, const std::string &sentence)
{
    send(nlohmann::ordered_json(
             {{"status", "error"}, {"code", code}, {"message", sentence}, {"payload_size", 0}})
             .dump() +
         "\n");
}

/** Identifies this server: as the server of the recording, with its sensors and its configuration. */
void replay_server::identify()
{
    std::set<unsigned> sensors;
    for (const auto &item : recording_.items())
    {
        sensors.insert(item.configuration.sensor_id);
    }
    const auto &server = recording_.session().server;
    const nlohmann::ordered_json identity = {{"status", "ok"},
                                             {"command", "identify"},
                                             {"payload_size", 0},
                                             {"server_version", std::string(version) + " (replay)"},
                                             {"protocol_version", protocol_version},
                                             {"sensor", server.sensor},
                                             {"sensor_count", sensors.empty() ? 0 : *sensors.rbegin()},
                                             {"connected_sensors", sensors},
                                             {"ticks_per_second", server.ticks_per_second},
                                             {"max_baudrate", 0},
                                             {"configuration", recording_.session().configuration}};
    send(identity.dump() + "\n");
}

/** Answers with the metadata of the recording, unless the configuration measures something else. */
void replay_server::configure(const nlohmann::json &configuration)
{
    if (const auto difference = first_difference(recording_.session().configuration, configuration))
    {
        refuse("configuration_refused", difference_text(*difference) +
                                            " A recording can only be replayed with its own configuration, "
                                            "which \"identify\" contains.");
        return;
    }
    state_ = state::configured;
    frames_.rewind();
    send(recording_.session().metadata.document.dump() + "\n");
}

/** Starts the stream with the next frame. */
void replay_server::start()
{
    state_ = state::streaming;
    answer("start");
    next_ = frames_.next();
    first_seconds_ = next_->seconds;
    started_ = now_();
}

} // namespace vantor
