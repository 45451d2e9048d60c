/** @file
 * A server with a script: it answers as a real one would, but for what a test tells it to do otherwise.
 */
#ifndef VANTOR_FAKE_SERVER_H
#define VANTOR_FAKE_SERVER_H

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <nlohmann/json.hpp>

namespace vantor::test
{

/** One host at a fake server. */
class host_connection
{
public:
    explicit host_connection(asio::ip::tcp::socket socket) : socket_(std::move(socket))
    {
    }

    /** Sends bytes as they are. */
    void send(const std::string &bytes);

    /** Sends a message: its header as a line, then its payload. */
    void send(const nlohmann::json &header, const std::string &payload);

    /** Closes the connection. */
    void close();

    /** Reads the next line; false when the host is gone. */
    bool read_line(std::string &line);

private:
    asio::ip::tcp::socket socket_;
    std::string buffer_;
};

/** What a fake server measures: the document that configures it, its metadata and the frames that follow. */
struct fake_session
{
    nlohmann::json configuration;
    nlohmann::json metadata;

    /** Header of a frame; its ticks are @p number × 20000. */
    [[nodiscard]] nlohmann::json frame_header(std::uint32_t number) const;

    /** Samples of a frame: recognisable by its number, strongest at point 7 of every sweep. */
    [[nodiscard]] std::string frame_payload(std::uint32_t number) const;
};

/** Two groups: an item of two sweeps with clear-channel assessment and one of two sub-sweeps; and one more.
 */
fake_session example_session();

/** A server that serves one host after the other on a free TCP port of this machine. */
class fake_server
{
public:
    using reaction = std::function<void(host_connection &host, const nlohmann::json &command)>;

    fake_server();
    fake_server(const fake_server &) = delete;
    fake_server &operator=(const fake_server &) = delete;
    fake_server(fake_server &&) = delete;
    fake_server &operator=(fake_server &&) = delete;
    ~fake_server();

    /** Sets what a command does; to be called before the first host comes. */
    void on(const std::string &command, reaction what);

    /** Where it listens. */
    [[nodiscard]] std::string address() const;

    /** The lines received so far, of all hosts. */
    [[nodiscard]] std::vector<std::string> lines() const;

private:
    void run();
    void serve(host_connection &host);
    void react(host_connection &host, const nlohmann::json &command);

    asio::io_context io_;
    asio::ip::tcp::acceptor acceptor_;
    std::map<std::string, reaction> reactions_;
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    bool ending_ = false;
    std::thread thread_; // last, so that it starts when all else is there
};

/** A reaction to "start": the answer and so many frames of the example session, from a number on. */
fake_server::reaction stream_frames(std::uint32_t count, std::uint32_t first = 0);

} // namespace vantor::test

#endif
