/** @file
 * A client of the web server that sends and receives bytes.
 */
#include "raw_client.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vantor
{
namespace
{

/** Returns a number as bytes, the most significant one first. */
std::string big_endian(uint64_t number, size_t size)
{
    std::string bytes;
    for (size_t left = size; left > 0; --left)
    {
        bytes += static_cast<char>(number >> (8U * (left - 1)));
    }
    return bytes;
}

uint64_t number_of(const std::string &bytes)
{
    uint64_t number = 0;
    for (const char byte : bytes)
    {
        number = number << 8U | static_cast<unsigned char>(byte);
    }
    return number;
}

} // namespace

std::string raw_answer::header(const std::string &name) const
{
    return headers.count(name) == 1 ? headers.find(name)->second : "(not once)";
}

unsigned raw_frame::close_code() const
{
    return static_cast<unsigned>(number_of(payload.substr(0, 2)));
}

std::string raw_frame::close_reason() const
{
    return payload.size() < 2 ? "" : payload.substr(2);
}

raw_client::raw_client(uint16_t port, int receive_buffer)
    : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), port_(port)
{
    if (receive_buffer != 0)
    {
        setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof(receive_buffer));
    }
    const timeval patience{.tv_sec = 60, .tv_usec = 0};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    sockaddr_in where{};
    where.sin_family = AF_INET;
    where.sin_port = htons(port);
    where.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(socket_, reinterpret_cast<const sockaddr *>(&where), sizeof(where)) != 0)
    {
        throw std::runtime_error("cannot connect");
    }
}

raw_client::~raw_client()
{
    close(socket_);
}

void raw_client::send(const std::string &bytes)
{
    size_t sent = 0;
    while (sent < bytes.size())
    {
        const auto count = ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EAGAIN)
        {
            throw std::runtime_error("the server accepts no bytes");
        }
        if (count <= 0)
        {
            return;
        }
        sent += static_cast<size_t>(count);
    }
}

bool raw_client::receive_some()
{
    std::array<char, 65536> bytes{};
    const auto count = recv(socket_, bytes.data(), bytes.size(), 0);
    if (count < 0 && errno == EAGAIN)
    {
        throw std::runtime_error("the server sends nothing");
    }
    input_.append(bytes.data(), count > 0 ? static_cast<size_t>(count) : 0);
    return count > 0;
}

bool raw_client::receive_up_to(size_t count)
{
    while (input_.size() < count)
    {
        if (!receive_some())
        {
            return false;
        }
    }
    return true;
}

std::string raw_client::take(size_t count)
{
    std::string taken = input_.substr(0, count);
    input_.erase(0, count);
    return taken;
}

bool raw_client::receive_line(std::string &line)
{
    size_t end = 0;
    while ((end = input_.find("\r\n")) == std::string::npos)
    {
        if (!receive_some())
        {
            return false;
        }
    }
    line = take(end);
    take(2);
    return true;
}

raw_answer raw_client::receive_answer(bool has_body)
{
    raw_answer answer;
    std::string line;
    if (!receive_line(line))
    {
        return answer;
    }
    answer.status = static_cast<unsigned>(std::stoul(line.substr(line.find(' ') + 1)));
    while (receive_line(line) && !line.empty())
    {
        const size_t colon = line.find(": ");
        answer.headers.emplace(line.substr(0, colon), line.substr(colon + 2));
    }
    const auto length = answer.headers.find("Content-Length");
    if (has_body && length != answer.headers.end())
    {
        const size_t count = std::stoul(length->second);
        receive_up_to(count);
        answer.body = take(count);
    }
    return answer;
}

raw_answer raw_client::request(const std::string &target, const std::string &headers,
                               const std::string &method)
{
    send(method + " " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port_) + "\r\n" + headers +
         "\r\n");
    return receive_answer(method != "HEAD");
}

raw_answer raw_client::open_stream(const std::string &token, const std::string &headers)
{
    return request("/stream?token=" + token, "Connection: Upgrade\r\nUpgrade: websocket\r\n"
                                             "Sec-WebSocket-Version: 13\r\n"
                                             "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n" +
                                                 headers);
}

void raw_client::send_frame(frame_kind kind, const std::string &payload, bool is_last)
{
    std::string frame(1, static_cast<char>((is_last ? 0x80 : 0) | static_cast<int>(kind)));
    const size_t size = payload.size();
    if (size < 126)
    {
        frame += static_cast<char>(0x80U | size);
    }
    else
    {
        const bool is_long = size > 65535;
        frame += static_cast<char>(0x80U | (is_long ? 127U : 126U));
        frame += big_endian(size, is_long ? 8 : 2);
    }
    const std::string mask = "\x12\x34\x56\x78";
    frame += mask;
    for (size_t at = 0; at < size; ++at)
    {
        frame += static_cast<char>(payload[at] ^ mask[at % 4]);
    }
    send(frame);
}

raw_frame raw_client::receive_frame()
{
    if (!receive_up_to(2))
    {
        return {};
    }
    const std::string start = take(2);
    size_t size = static_cast<unsigned char>(start[1]);
    const size_t more = size == 127 ? 8 : size == 126 ? 2 : 0;
    if (more > 0)
    {
        receive_up_to(more);
        size = number_of(take(more));
    }
    if (size > 1U << 24U || (start[0] & 0x80) == 0 || !receive_up_to(size))
    {
        throw std::runtime_error("not a whole frame");
    }
    return {.kind = static_cast<frame_kind>(start[0] & 0x0f), .payload = take(size)};
}

raw_frame raw_client::receive_message()
{
    while (true)
    {
        raw_frame frame = receive_frame();
        if (frame.kind != frame_kind::ping)
        {
            return frame;
        }
        send_frame(frame_kind::pong, frame.payload);
    }
}

bool raw_client::has_input(int wait_ms) const
{
    pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
    return poll(&waiting, 1, wait_ms) > 0;
}

std::string raw_client::receive_all()
{
    while (receive_some())
    {
    }
    return std::exchange(input_, {});
}

} // namespace vantor
