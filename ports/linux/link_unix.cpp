/** @file
 * Links over a socket in the file system.
 */
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <string_view>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "link_socket.h"

namespace
{

/** Most bytes of a piece: the system reports only that the host has taken all of it. */
constexpr size_t largest_piece = 4096;

/** Most pieces to pass to the system in one call: as much as it accepts at once. */
constexpr size_t most_pieces = 64;

/** Converts a path into the address of a socket. */
sockaddr_un address_of(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
    {
        throw std::runtime_error("the path of a socket must be shorter than " +
                                 std::to_string(sizeof(address.sun_path)) + " bytes: " + path);
    }
    std::memcpy(static_cast<char *>(address.sun_path), path.data(), path.size());
    return address;
}

/** How long to wait for another program that has locked the directory, and how often to try. */
constexpr std::chrono::seconds lock_time{5};
constexpr std::chrono::milliseconds lock_interval{10};

/** Keeps other servers from creating a socket in a directory at the same time. */
class directory_lock_t
{
public:
    explicit directory_lock_t(const std::string &path)
        : directory_(::open(directory_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        const auto deadline = std::chrono::steady_clock::now() + lock_time;
        while (flock(directory_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        {
            if (std::chrono::steady_clock::now() >= deadline)
            {
                close(directory_);
                throw std::runtime_error("cannot listen on " + path +
                                         ": another program has locked its directory");
            }
            std::this_thread::sleep_for(lock_interval);
        }
    }
    directory_lock_t(const directory_lock_t &) = delete;
    directory_lock_t &operator=(const directory_lock_t &) = delete;
    ~directory_lock_t()
    {
        close(directory_);
    }

private:
    static std::string directory_of(const std::string &path)
    {
        const std::string directory = std::filesystem::path(path).parent_path().string();
        return directory.empty() ? "." : directory;
    }

    int directory_;
};

/** Returns whether a file is a socket. */
bool is_socket(const std::string &path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

/** Describes why no socket can be created, and what to do about it. */
std::string describe_failure(const std::string &path, int error)
{
    if (error != EADDRINUSE)
    {
        return std::strerror(error);
    }
    return is_socket(path) ? "another program uses it; stop that program, or use another path"
                           : "it is not a socket; remove it, or use another path";
}

/** Returns whether a file is a socket that nobody listens on. */
bool is_abandoned(const std::string &path)
{
    if (!is_socket(path))
    {
        return false;
    }
    const sockaddr_un address = address_of(path);
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool refused = connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 &&
                         errno == ECONNREFUSED;
    close(probe);
    return refused;
}

class unix_link_t final : public socket_link_t
{
public:
    explicit unix_link_t(std::string path) : socket_link_t(AF_UNIX), path_(std::move(path))
    {
        const directory_lock_t lock(path_);
        if (is_abandoned(path_))
        {
            unlink(path_.c_str());
        }
        if (!bind_for_owner() || listen(listener(), SOMAXCONN) != 0 || lstat(path_.c_str(), &created_) != 0)
        {
            const int error = errno;
            throw std::runtime_error("cannot listen on " + path_ + ": " + describe_failure(path_, error));
        }
    }

    ~unix_link_t() override
    {
        // Another server may have created its own socket there since.
        struct stat found = {};
        if (lstat(path_.c_str(), &found) == 0 && found.st_dev == created_.st_dev &&
            found.st_ino == created_.st_ino)
        {
            unlink(path_.c_str());
        }
    }

    std::string address() const override
    {
        return "unix:" + path_;
    }

private:
    /** Passes several pieces in one call, which the system keeps apart. */
    ssize_t transmit(int out, std::string_view first, std::string_view then) override
    {
        std::array<iovec, most_pieces> pieces;
        std::array<mmsghdr, most_pieces> messages{};
        unsigned count = 0;
        for (std::string_view rest : {first, then})
        {
            for (; !rest.empty() && count < most_pieces; ++count)
            {
                const std::string_view piece = rest.substr(0, largest_piece);
                rest.remove_prefix(piece.size());
                pieces[count] = {const_cast<char *>(piece.data()), piece.size()};
                messages[count].msg_hdr.msg_iov = &pieces[count];
                messages[count].msg_hdr.msg_iovlen = 1;
            }
        }
        return sum_of_lengths(messages, sendmmsg(out, messages.data(), count, MSG_NOSIGNAL));
    }

    /** Returns the number of bytes in the first messages; negative if their number is negative. */
    static ssize_t sum_of_lengths(std::span<const mmsghdr> messages, int sent)
    {
        ssize_t sum = std::min(sent, 0);
        for (int i = 0; i < sent; ++i)
        {
            sum += messages[static_cast<size_t>(i)].msg_len;
        }
        return sum;
    }

    /** Creates the socket's file, which only the owner can use. */
    bool bind_for_owner() const
    {
        const sockaddr_un address = address_of(path_);
        const mode_t mask = umask(S_IXUSR | S_IRWXG | S_IRWXO);
        const bool bound =
            bind(listener(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
        const int error = errno;
        umask(mask);
        errno = error;
        return bound;
    }

    std::string path_;
    struct stat created_ = {};
};

} // namespace

std::unique_ptr<link_t> make_unix_link(const std::string &path)
{
    return std::make_unique<unix_link_t>(path);
}
