/** @file
 * What a stand-in for a server does: it answers as a real one would, unless a test has it do something else.
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

/** The way to one host. */
class host_connection
{
public:
    host_connection() = default;
    host_connection(const host_connection &) = delete;
    host_connection &operator=(const host_connection &) = delete;
    host_connection(host_connection &&) = delete;
    host_connection &operator=(host_connection &&) = delete;
    virtual ~host_connection() = default;

    /** Sends bytes as they are. */
    virtual void send(const std::string &bytes) = 0;

    /** Sends a message: its header as a line, then its payload. */
    void send(const nlohmann::json &header, const std::string &payload);

    /** Closes the connection. */
    virtual void close() = 0;
};

/** The answer to "identify". */
nlohmann::json identity();

/** What a scripted server measures: the document that configures it, its metadata and the frames that follow.
 */
struct fake_session
{
    nlohmann::json configuration;
    nlohmann::json metadata;

    /** Header of a frame; its ticks are @p number × 20000. */
    [[nodiscard]] nlohmann::json frame_header(uint32_t number) const;

    /** Samples of a frame: recognisable by its number, strongest at point 7 of every sweep. */
    [[nodiscard]] std::string frame_payload(uint32_t number) const;
};

/** Two groups: an item of two sweeps with clear-channel assessment and one of two sub-sweeps; and one more.
 */
fake_session example_session();

/** The last command of a name among lines that a server received; throws when there is none. */
nlohmann::json last_command(const std::vector<std::string> &lines, const std::string &name);

/** What a command does. */
using reaction = std::function<void(host_connection &host, const nlohmann::json &command)>;

/** A reaction to "start": the answer and this many frames of the example session, from a number on. */
reaction stream_frames(uint32_t count, uint32_t first = 0);

/** What each command does. For several threads. */
class server_script
{
public:
    /** Sets what a command does. */
    void on(const std::string &command, reaction what);

    /** Executes a line that a host has sent. */
    void react(host_connection &host, const std::string &line);

    /** The lines that were not empty, of all hosts. */
    [[nodiscard]] std::vector<std::string> lines() const;

private:
    [[nodiscard]] reaction find(const std::string &command) const;

    mutable std::mutex mutex_;
    std::map<std::string, reaction> reactions_;
    std::vector<std::string> lines_;
};

} // namespace vantor::test

#endif
