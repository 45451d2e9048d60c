/** @file
 * Serves a recording, or another stream, to a host, like a server that measures.
 */
#ifndef VANTOR_REPLAY_SERVER_H
#define VANTOR_REPLAY_SERVER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

#include <nlohmann/json.hpp>

#include "replay/first_line.h"
#include "replay/served_stream.h"
#include "vantor/event_loop.h"
#include "vantor/link.h"

namespace vantor
{

/** What a server has counted since it started. */
struct replay_counts
{
    uint64_t frames = 0;                    /**< sent */
    uint64_t bytes_sent = 0;                /**< payloads included */
    uint64_t bytes_received = 0;            /**< of lines that were executed or refused */
    uint64_t hosts_dropped = 0;             /**< disconnected because they accepted no data */
    std::map<std::string, uint64_t> errors; /**< how often each error code was sent */
};

/**
 * Serves a stream to one host. It accepts a configuration that measures what the stream contains, and answers
 * with the metadata of the stream. "identify" contains its configuration.
 */
class replay_server
{
public:
    /**
     * @param stream  what is served; must outlive this object, like the link
     * @param host    the link to the host
     * @param counts  what was counted with earlier hosts; continued
     */
    replay_server(served_stream &stream, link &host, replay_counts &counts);

    /**
     * Serves the host until it disconnects, or the session of the stream has ended. A client that sends HTTP
     * or TLS is disconnected.
     *
     * @param stop  called at least ten times per second; true ends the service
     * @throws connection_lost if the host disconnects
     * @throws timeout_error if the host accepts no data for 10 seconds
     * @throws cancelled if waiting was cancelled
     * @throws bad_recording if a file cannot be read
     */
    void run(const std::function<bool()> &stop);

private:
    /** The states of a session, as in docs/protocol.md. */
    enum class state
    {
        idle,
        configured,
        streaming,
    };

    /** When a command is accepted, and what it does. */
    struct command_rule
    {
        const char *member = nullptr;              /**< the only one beside "command"; null if none */
        bool (*fits)(const nlohmann::json &) = {}; /**< whether its value is allowed */
        std::set<state> states;                    /**< that allow the command */
        void (replay_server::*run)(const nlohmann::json &command) = {}; /**< executes it */
    };

    static const std::map<std::string, command_rule> &commands();
    static bool has_members(const nlohmann::json &command, const command_rule &rule);
    static nlohmann::ordered_json answer_to(const nlohmann::json &command);
    void receive();
    void receive(char c);
    void add_to_line(char c);
    void check_client();
    void refuse_client();
    void execute_line(const std::string &line);
    void execute(const std::string &name, const nlohmann::json &command);
    void send(const std::string &bytes);
    void send_message(const nlohmann::ordered_json &message);
    void refuse(const std::string &code, const std::string &sentence);
    void answer(const nlohmann::json &command);
    void identify(const nlohmann::json &command);
    void end(const nlohmann::json &command);
    void stats(const nlohmann::json &command);
    void refuse_baudrate(const nlohmann::json &command);
    void configure(const nlohmann::json &command);
    void start(const nlohmann::json &command);
    void stop(const nlohmann::json &command);
    void single_frame(const nlohmann::json &command);
    [[nodiscard]] bool has_ended();
    void send_due_frame();
    void send_frame(const std::string &message);
    [[nodiscard]] std::chrono::milliseconds patience();

    served_stream &stream_;
    link &host_;
    replay_counts &counts_;
    state state_ = state::idle;
    client_kind client_ = client_kind::unknown;
    std::string input_;     /**< the line that is being received */
    bool dropping_ = false; /**< the line is too long: its rest is discarded */
};

} // namespace vantor

#endif
