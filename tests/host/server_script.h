/** @file
 * The behaviour of a scripted server: it answers like a real one, unless a test sets another reaction.
 */
#ifndef VANTOR_SERVER_SCRIPT_H
#define VANTOR_SERVER_SCRIPT_H

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace vantor::test
{

/** The connection to one host. */
class host_connection
{
public:
    host_connection() = default;
    host_connection(const host_connection &) = delete;
    host_connection &operator=(const host_connection &) = delete;
    host_connection(host_connection &&) = delete;
    host_connection &operator=(host_connection &&) = delete;
    virtual ~host_connection() = default;

    /** Sends bytes unchanged. */
    virtual void send(const std::string &bytes) = 0;

    /** Sends a message: its header as a line, then its payload. */
    void send(const nlohmann::json &header, const std::string &payload);

    /** Closes the connection. */
    virtual void close() = 0;
};

/** The answer to "identify". */
nlohmann::json identity();

/** The session of a scripted server: the configuration document, the metadata and the frames.
 */
struct fake_session
{
    nlohmann::json configuration;
    nlohmann::json metadata;

    /** Header of a frame; its ticks are @p number × 20000. */
    [[nodiscard]] nlohmann::json frame_header(uint32_t number) const;

    /** Samples of a frame: they depend on its number, and point 7 of every sweep is the strongest. */
    [[nodiscard]] std::string frame_payload(uint32_t number) const;
};

/** Two groups: an item of two sweeps with clear-channel assessment and one of two sub-sweeps; and a third
 * item.
 */
fake_session example_session();

/** The metadata of the example session; with as many items as a configuration has if that has not three. */
nlohmann::json metadata_for(const nlohmann::json &configuration);

/** A reaction to "configure": the metadata for its configuration. */
void describe_configuration(host_connection &host, const nlohmann::json &command);

/** The last command with a name in the lines that a server received; throws if there is none. */
nlohmann::json last_command(const std::vector<std::string> &lines, const std::string &name);

/** The reaction to a command. */
using reaction = std::function<void(host_connection &host, const nlohmann::json &command)>;

/** A reaction to "start": the answer and this many frames of the example session, starting at a number. */
reaction stream_frames(uint32_t count, uint32_t first = 0);

/** The reactions to all commands. Thread-safe. */
class server_script
{
public:
    /** Sets the reaction to a command. */
    void on(const std::string &command, reaction what);

    /** Executes a line from a host. */
    void react(host_connection &host, const std::string &line);

    /** The non-empty lines from all hosts. */
    [[nodiscard]] std::vector<std::string> lines() const;

private:
    [[nodiscard]] reaction find(const std::string &command) const;

    mutable std::mutex mutex_;
    std::map<std::string, reaction> reactions_;
    std::vector<std::string> lines_;
};

} // namespace vantor::test

#endif
