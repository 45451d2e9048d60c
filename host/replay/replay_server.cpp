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
#include "vantor/configuration.h"
#include "version.h"

namespace vantor
{
namespace
{

/** How long to wait for a command if no frame is due. */
constexpr std::chrono::milliseconds command_patience{100};

/** How long to wait while a host accepts no data, as other servers do. */
constexpr std::chrono::seconds write_timeout{10};

/** Longest command line. */
constexpr size_t longest_line = 1 << 20;

/** The answer to a client that sends HTTP, the same as that of a server with sensors. */
constexpr const char *http_answer =
    "{\"status\":\"error\",\"code\":\"wrong_protocol\",\"message\":\"This looks like HTTP or TLS, which the "
    "server does not use: connect with vantor, or send one JSON command per line.\",\"payload_size\":0}\n";

/** Whether a line is an HTTP request: a web page can make a browser send one, with commands in its body. */
bool is_http(const std::string &line)
{
    return !line.starts_with('{') && line.find(" HTTP/") != std::string::npos;
}

} // namespace

replay_server::replay_server(recording_reader &recording, link &host, event_loop &loop, double speed)
    : recording_(recording), host_(host), source_(recording, {.speed = speed, .endless = true}, loop)
{
}

void replay_server::run(const std::function<bool()> &stop)
{
    while (!refused_ && !stop())
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
    if (const auto played = source_.receive(std::chrono::milliseconds(0)))
    {
        send(*played);
    }
}

/** Sends a frame. */
void replay_server::send(const frame &played)
{
    send(encode_frame(played));
    ++frames_sent_;
}

/** How long to wait for a command. */
std::chrono::milliseconds replay_server::patience()
{
    if (state_ != state::streaming)
    {
        return command_patience;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(source_.time_until_due());
    return std::clamp(left, std::chrono::milliseconds(0), command_patience);
}

/** Waits for commands, at most until the next frame is due, and executes them. */
void replay_server::receive()
{
    std::array<std::byte, 4096> bytes{};
    const auto count = host_.read_some(bytes, patience());
    for (size_t i = 0; i < count && !refused_; ++i)
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
    if (std::exchange(first_line_, false) && is_http(line))
    {
        refused_ = true;
        send(http_answer);
        return;
    }
    nlohmann::json command;
    try
    {
        command = parse_json_text(line, "The command");
    }
    catch (const configuration_error &failure)
    {
        refuse("bad_json", std::string(failure.what()) + " Send one JSON object per line.");
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
        send(source_.next());
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
    source_.rewind();
    send(recording_.session().metadata.document.dump() + "\n");
}

/** Starts the stream with the next frame. */
void replay_server::start()
{
    state_ = state::streaming;
    answer("start");
    source_.start();
}

} // namespace vantor
