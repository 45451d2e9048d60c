/** @file
 * Links to a board behind a message broker.
 */
#include "bridge/remote_links.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <thread>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

#include "bridge/frame_queue.h"
#include "bridge/remote_board.h"
#include "client/local_link.h"
#include "replay/replay_server.h"
#include "vantor/blocking_work.h"

namespace vantor
{
namespace
{

/** The end of a link that a host uses: counts the bytes that it reads. */
class counting_link : public local_link
{
public:
    /** @param read  counts bytes */
    counting_link(int socket, std::shared_ptr<event_loop> loop, std::shared_ptr<std::atomic<uint64_t>> read)
        : local_link(socket, std::move(loop)), read_(std::move(read))
    {
    }

    size_t read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout) override
    {
        return counted(local_link::read_some(buffer, timeout));
    }

    size_t read_both(std::span<std::byte> first, std::span<std::byte> second,
                     std::chrono::milliseconds timeout) override
    {
        return counted(local_link::read_both(first, second, timeout));
    }

private:
    size_t counted(size_t count)
    {
        *read_ += count;
        return count;
    }

    std::shared_ptr<std::atomic<uint64_t>> read_;
};

/** The end of a link that a service uses. */
struct host_end
{
    int socket = -1;
    std::shared_ptr<std::atomic<uint64_t>> read; /**< bytes that the host has read */
};

/** Serves a board to one host after the other, on a thread of its own. */
class board_service
{
public:
    board_service(remote_board_address where, broker_security security, remote_board::reporter report)
        : where_(std::move(where)), security_(std::move(security)), report_(std::move(report))
    {
    }

    board_service(const board_service &) = delete;
    board_service &operator=(const board_service &) = delete;
    board_service(board_service &&) = delete;
    board_service &operator=(board_service &&) = delete;

    ~board_service()
    {
        if (thread_.joinable())
        {
            loop_->post([this] { stop_ = true; });
            loop_->cancel();
            thread_.join();
        }
    }

    /** Connects to the broker unless that was done; throws as remote_board does. */
    void connect()
    {
        if (!board_)
        {
            require_past();
            board_ = std::make_unique<remote_board>(where_, security_, *loop_, report_);
            thread_ = std::thread([this] { work(); });
        }
    }

    /** Ends waiting in connect(), which then throws cancelled. Any thread may call it. */
    void cancel()
    {
        loop_->cancel();
    }

    /** Has a host served, after the one before, whose link is closed. @param host  its socket is closed */
    void serve(const host_end &host)
    {
        loop_->post([this, host] {
            if (next_)
            {
                ::close(next_->socket);
            }
            next_ = host;
        });
    }

private:
    /** Throws if the frames would begin in the future. */
    void require_past() const
    {
        if (where_.from && *where_.from > std::chrono::system_clock::now())
        {
            throw address_error("The time behind \"@\" is in the future: leave it out to get the frames that "
                                "arrive from now on.");
        }
    }

    /** The thread. */
    void work()
    {
        while (!stop_)
        {
            try
            {
                loop_->run_until([this] { return stop_ || next_; }, event_loop::time_point::max());
                loop_->check_cancelled();
                serve_next();
            }
            catch (const cancelled &) // NOLINT(bugprone-empty-catch): to stop
            {
            }
            catch (const error &) // NOLINT(bugprone-empty-catch): the host has gone
            {
            }
        }
    }

    /** Serves the next host until it disconnects. */
    void serve_next()
    {
        if (next_)
        {
            board_->put_back_unread(sent_before_ + (served_.read ? served_.read->load() : 0));
            sent_before_ = counts_.bytes_sent;
            served_ = *std::exchange(next_, std::nullopt);
            local_link host(served_.socket, loop_);
            replay_server(*board_, host, counts_).run([this] { return stop_ || next_; });
            if (!stop_ && !next_ && board_->has_ended())
            {
                report_("Board " + where_.board +
                        ": this session has ended. With --reconnect, the next one follows.");
                await_end(host);
            }
        }
    }

    /** Lets a host read what it was sent, until it closes the link. */
    void await_end(local_link &host)
    {
        ::shutdown(host.descriptor(), SHUT_WR);
        std::array<std::byte, 4096> ignored{};
        while (!stop_ && !next_)
        {
            (void)host.read_some(ignored, std::chrono::milliseconds(100));
        }
    }

    remote_board_address where_;
    broker_security security_;
    remote_board::reporter report_;
    std::shared_ptr<event_loop> loop_ = std::make_shared<event_loop>();
    std::unique_ptr<remote_board> board_;
    replay_counts counts_;
    host_end served_;              /**< the host that was served last */
    uint64_t sent_before_ = 0;     /**< bytes that hosts before that one were sent */
    std::optional<host_end> next_; /**< the host that waits */
    bool stop_ = false;
    std::thread thread_;
};

/** A pair of connected sockets. The buffer of the second one is smaller than what a frame_queue keeps. */
std::array<int, 2> make_socket_pair()
{
    std::array<int, 2> sockets{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0)
    {
        throw connect_error(std::string("Cannot make a socket: ") + std::strerror(errno) + ".");
    }
    // Linux doubles it.
    const int size = frame_queue::most_unread / 4;
    ::setsockopt(sockets[1], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    return sockets;
}

/** The value of an environment variable; empty if there is none. */
std::string environment(const char *name)
{
    const char *value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing changes the environment
    return value == nullptr ? "" : value;
}

} // namespace

client::link_factory links_to_remote_board(const std::string &text, const broker_security &security,
                                           const std::shared_ptr<event_loop> &loop,
                                           std::function<void(const std::string &line)> report)
{
    const auto tell = [loop, report = std::move(report)](const std::string &line) {
        loop->post([report, line] { report(line); });
    };
    const auto service = std::make_shared<board_service>(parse_remote_board_address(text), security, tell);
    return [service, loop] {
        run_beside(
            *loop, [&] { service->connect(); }, [&] { service->cancel(); });
        const auto [ours, theirs] = make_socket_pair();
        const auto read = std::make_shared<std::atomic<uint64_t>>(0);
        service->serve({.socket = theirs, .read = read});
        return std::make_unique<counting_link>(ours, loop, read);
    };
}

broker_security security_of_environment()
{
    return {.authorities = environment("NATS_CA"),
            .certificate = environment("NATS_CERT"),
            .key = environment("NATS_KEY"),
            .credentials = environment("NATS_CREDS")};
}

} // namespace vantor
