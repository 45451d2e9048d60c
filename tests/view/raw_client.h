/** @file
 * A client of the web server that sends and receives bytes, without a library for HTTP or WebSockets.
 */
#ifndef VANTOR_VIEW_RAW_CLIENT_H
#define VANTOR_VIEW_RAW_CLIENT_H

#include <cstdint>
#include <map>
#include <string>

namespace vantor
{

/** An answer to an HTTP request. */
struct raw_answer
{
    unsigned status = 0; /**< 0 if the connection ended without an answer */
    std::multimap<std::string, std::string> headers;
    std::string body;

    /** The value of a header, which must be there once. */
    [[nodiscard]] std::string header(const std::string &name) const;
};

/** The kinds of a WebSocket's frames. */
enum class frame_kind : uint8_t
{
    continuation = 0,
    text = 1,
    binary = 2,
    close = 8,
    ping = 9,
    pong = 10,
    none = 15, /**< the connection has ended */
};

/** A frame of a WebSocket. */
struct raw_frame
{
    frame_kind kind = frame_kind::none;
    std::string payload;

    /** The code of a close frame. */
    [[nodiscard]] unsigned close_code() const;

    /** The reason of a close frame. */
    [[nodiscard]] std::string close_reason() const;
};

/** A connection. Waiting ends with an exception after a minute. */
class raw_client
{
public:
    /** @param receive_buffer  of the socket, in bytes; 0 for the usual one */
    explicit raw_client(uint16_t port, int receive_buffer = 0);
    raw_client(const raw_client &) = delete;
    raw_client &operator=(const raw_client &) = delete;
    raw_client(raw_client &&) = delete;
    raw_client &operator=(raw_client &&) = delete;
    ~raw_client();

    /** Sends bytes; what the other side does not want any more is lost. */
    void send(const std::string &bytes);

    /** Receives an answer. @param has_body  false for an answer to HEAD */
    raw_answer receive_answer(bool has_body = true);

    /** Sends a request and receives the answer. */
    raw_answer request(const std::string &target, const std::string &headers = {},
                       const std::string &method = "GET");

    /** Opens a WebSocket. */
    raw_answer open_stream(const std::string &token, const std::string &headers = {});

    /** Sends a frame. */
    void send_frame(frame_kind kind, const std::string &payload, bool is_last = true);

    /** Receives a frame, from which the server must not have hidden anything by a mask. */
    raw_frame receive_frame();

    /** Receives a frame of data or a close frame; answers pings. */
    raw_frame receive_message();

    /** Whether bytes, or the end of the connection, arrive in a time. */
    [[nodiscard]] bool has_input(int wait_ms = 0) const;

    /** Receives until the server has closed the connection. */
    std::string receive_all();

private:
    bool receive_some();
    bool receive_up_to(size_t count);
    bool receive_line(std::string &line);
    std::string take(size_t count);

    int socket_;
    uint16_t port_;
    std::string input_;
};

} // namespace vantor

#endif
