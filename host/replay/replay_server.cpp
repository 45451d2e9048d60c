/** @file
 * Serves a recording, or another stream, to a host.
 */
#include "replay/replay_server.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

#include "replay/configuration_difference.h"
#include "replay/first_line.h"
#include "vantor/client.h"
#include "vantor/configuration.h"

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

/** The reason of the last disconnection in "identify". */
constexpr const char *drop_reason = "it accepted no data for 10 s";

/** Whether a value is a word that selects log lines. */
bool is_log_level(const nlohmann::json &value)
{
    static const std::set<std::string> words = {"OFF", "ERROR", "WARNING", "INFO", "VERBOSE", "DEBUG"};
    return value.is_string() && words.contains(value.get<std::string>());
}

} // namespace

replay_server::replay_server(served_stream &stream, link &host, replay_counts &counts)
    : stream_(stream), host_(host), counts_(counts)
{
}

void replay_server::run(const std::function<bool()> &stop)
try
{
    while (client_ != client_kind::not_a_host && !stop() && !has_ended())
    {
        send_due_frame();
        receive();
    }
}
catch (const timeout_error &)
{
    ++counts_.hosts_dropped;
    throw;
}

/** Whether the host has a session, which has ended. */
bool replay_server::has_ended()
{
    return state_ != state::idle && stream_.has_ended();
}

/** Sends the next frame of the stream if it is due. */
void replay_server::send_due_frame()
{
    if (state_ != state::streaming)
    {
        return;
    }
    if (const auto due = stream_.take_due())
    {
        send_frame(*due);
    }
}

/** Sends a frame. */
void replay_server::send_frame(const std::string &message)
{
    stream_.note_sent(counts_.bytes_sent + message.size());
    send(message);
    ++counts_.frames;
}

/** How long to wait for a command. */
std::chrono::milliseconds replay_server::patience()
{
    if (state_ != state::streaming)
    {
        return command_patience;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(stream_.time_until_due());
    return std::clamp(left, std::chrono::milliseconds(0), command_patience);
}

/** Waits for commands, at most until the next frame is due, and executes them. */
void replay_server::receive()
{
    std::array<std::byte, 4096> bytes{};
    const auto count = host_.read_some(bytes, patience());
    for (size_t i = 0; i < count && client_ != client_kind::not_a_host; ++i)
    {
        ++counts_.bytes_received;
        receive(static_cast<char>(bytes[i]));
    }
    if (count > 0)
    {
        check_client();
    }
}

/** Receives a character of a line. */
void replay_server::receive(char c)
{
    if (c != '\n')
    {
        add_to_line(c);
        return;
    }
    if (!std::exchange(dropping_, false) && input_.find_first_not_of(" \t\r") != std::string::npos)
    {
        input_ += c;
        check_client();
        execute_line(input_);
    }
    input_.clear();
}

/** Adds a character to the line, unless it is too long. */
void replay_server::add_to_line(char c)
{
    if (dropping_)
    {
        return;
    }
    input_ += c;
    if (input_.size() <= longest_line)
    {
        return;
    }
    dropping_ = true;
    if (client_ == client_kind::unknown)
    {
        // No command is so long before its first brace.
        refuse_client();
    }
    else
    {
        refuse("line_too_long", "Send shorter commands.");
    }
    input_.clear();
}

/** Disconnects a client that is not a host. */
void replay_server::refuse_client()
{
    client_ = client_kind::not_a_host;
    send(http_answer);
}

/** Finds out from the first line whether the client is a host; answers it if it is not. */
void replay_server::check_client()
{
    if (client_ == client_kind::unknown)
    {
        client_ = recognise_client(input_);
        if (client_ == client_kind::not_a_host)
        {
            refuse_client();
        }
    }
}

/** Executes one line. */
void replay_server::execute_line(const std::string &line)
{
    if (client_ == client_kind::not_a_host)
    {
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

/** The commands of docs/protocol.md. */
const std::map<std::string, replay_server::command_rule> &replay_server::commands()
{
    static const std::set<state> any = {state::idle, state::configured, state::streaming};
    static const std::map<std::string, command_rule> rules = {
        {"identify", {.states = any, .run = &replay_server::identify}},
        {"ping", {.states = any, .run = &replay_server::answer}},
        {"end", {.states = any, .run = &replay_server::end}},
        {"log", {.member = "level", .fits = is_log_level, .states = any, .run = &replay_server::answer}},
        {"stats", {.states = any, .run = &replay_server::stats}},
        {"baudrate",
         {.member = "baudrate",
          .fits = [](const auto &value) { return value.is_number_integer(); },
          .states = {state::idle, state::configured},
          .run = &replay_server::refuse_baudrate}},
        {"configure",
         {.member = "configuration",
          .fits = [](const auto &value) { return value.is_object(); },
          .states = {state::idle},
          .run = &replay_server::configure}},
        {"start", {.states = {state::configured}, .run = &replay_server::start}},
        {"frame", {.states = {state::configured}, .run = &replay_server::single_frame}},
        {"stop", {.states = {state::streaming}, .run = &replay_server::stop}}};
    return rules;
}

/** Executes a command, or refuses it. */
void replay_server::execute(const std::string &name, const nlohmann::json &command)
{
    const auto found = commands().find(name);
    if (found == commands().end())
    {
        refuse("unknown_command", "Use a command of the protocol.");
        return;
    }
    const auto &rule = found->second;
    if (!has_members(command, rule))
    {
        refuse("bad_argument",
               rule.member == nullptr
                   ? std::string("Send \"command\" as the only member of this command.")
                   : "Send \"" + name + "\" with a correct \"" + rule.member + "\", and no other member.");
    }
    else if (!rule.states.contains(state_))
    {
        refuse("wrong_state", "Configure an idle server, then start or ask for a frame, then stop.");
    }
    else
    {
        (this->*rule.run)(command);
    }
}

/** Whether a command has the members that it needs, and no other. */
bool replay_server::has_members(const nlohmann::json &command, const command_rule &rule)
{
    if (rule.member == nullptr)
    {
        return command.size() == 1;
    }
    const auto found = command.find(rule.member);
    return command.size() == 2 && found != command.end() && rule.fits(*found);
}

/** Sends bytes. */
void replay_server::send(const std::string &bytes)
{
    host_.write(std::as_bytes(std::span(bytes)), write_timeout);
    counts_.bytes_sent += bytes.size();
}

/** Sends a message without a payload. */
void replay_server::send_message(const nlohmann::ordered_json &message)
{
    send(message.dump() + "\n");
}

/** The first members of the answer to a command. */
nlohmann::ordered_json replay_server::answer_to(const nlohmann::json &command)
{
    return {{"status", "ok"}, {"command", command["command"]}, {"payload_size", 0}};
}

/** Reports that a command was executed. */
void replay_server::answer(const nlohmann::json &command)
{
    send_message(answer_to(command));
}

/** Reports that a command was refused. */
void replay_server::refuse(const std::string &code, const std::string &sentence)
{
    ++counts_.errors[code];
    send_message({{"status", "error"}, {"code", code}, {"message", sentence}, {"payload_size", 0}});
}

/** Refuses another baud rate. */
void replay_server::refuse_baudrate(const nlohmann::json & /*command*/)
{
    refuse("baudrate_fixed", "A replayed recording has no baud rate to change.");
}

/** Reports what was counted. */
void replay_server::stats(const nlohmann::json &command)
{
    auto report = answer_to(command);
    // A frame is never left out: late frames are sent in a burst.
    report.update({{"frames", counts_.frames},
                   {"frames_left_out", 0},
                   {"bytes_sent", counts_.bytes_sent},
                   {"bytes_received", counts_.bytes_received},
                   {"errors", counts_.errors},
                   {"hosts_dropped", counts_.hosts_dropped}});
    send_message(report);
}

/** Ends the session. */
void replay_server::end(const nlohmann::json &command)
{
    state_ = state::idle;
    answer(command);
}

/** Identifies this server: as the server of the recording, with its sensors and its configuration. */
void replay_server::identify(const nlohmann::json &command)
{
    auto identity = answer_to(command);
    identity.update(stream_.identity());
    identity["max_baudrate"] = 0;
    identity["configuration"] = stream_.configuration();
    if (counts_.hosts_dropped > 0)
    {
        identity["last_drop"] = drop_reason;
    }
    send_message(identity);
}

/** Answers with the metadata of the recording, unless the configuration measures something else. */
void replay_server::configure(const nlohmann::json &command)
{
    if (const auto difference = first_difference(stream_.configuration(), command["configuration"]))
    {
        refuse("configuration_refused", difference_text(*difference) +
                                            " A recording can only be replayed with its own configuration, "
                                            "which \"identify\" contains; \"vantor record\" without CONFIG "
                                            "uses it.");
        return;
    }
    state_ = state::configured;
    stream_.begin();
    send_message(stream_.metadata());
}

/** Starts the stream with the next frame. */
void replay_server::start(const nlohmann::json &command)
{
    state_ = state::streaming;
    answer(command);
    stream_.start();
}

/** Sends the next frame. */
void replay_server::single_frame(const nlohmann::json & /*command*/)
{
    if (const auto next = stream_.take_next())
    {
        send_frame(*next);
    }
    else
    {
        refuse("frame_failed", "No frame has arrived.");
    }
}

/** Stops the stream. */
void replay_server::stop(const nlohmann::json &command)
{
    state_ = state::configured;
    auto report = answer_to(command);
    report["frames_left_out"] = 0;
    send_message(report);
}

} // namespace vantor
