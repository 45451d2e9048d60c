/** @file
 * Runs the program vantor_server as a child process.
 */
#include "client/server_process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "client/time_left.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

constexpr std::string_view program_name = "vantor_server";

/** Most bytes of the output of a server that are read, far more than it prints. */
constexpr size_t most_output = 65536;

/** Whether a path names an executable file. */
bool is_program(const std::filesystem::path &path)
{
    std::error_code failure;
    return std::filesystem::is_regular_file(path, failure) && access(path.c_str(), X_OK) == 0;
}

/** Spawn settings: the server communicates over a socket, and Ctrl-C on the terminal does not reach it. */
class spawn_settings
{
public:
    explicit spawn_settings(int socket)
    {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_adddup2(&actions_, socket, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, socket, STDOUT_FILENO);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP);
    }
    spawn_settings(const spawn_settings &) = delete;
    spawn_settings &operator=(const spawn_settings &) = delete;
    spawn_settings(spawn_settings &&) = delete;
    spawn_settings &operator=(spawn_settings &&) = delete;

    ~spawn_settings()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }

    /** Starts a program; returns 0 or an error number. */
    int spawn(pid_t &process, const char *program, std::vector<char *> &arguments)
    {
        return posix_spawn(&process, program, &actions_, &attributes_, arguments.data(), environ);
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

/** The message for an error number of the system. */
std::string system_message(int number)
{
    return std::generic_category().message(number);
}

} // namespace

std::filesystem::path find_server_program()
{
    // Called once per connection; nothing in this library changes the environment.
    if (const char *named = std::getenv("VANTOR_SERVER")) // NOLINT(concurrency-mt-unsafe)
    {
        return named;
    }
    std::error_code failure;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", failure);
    if (auto beside = self.parent_path() / program_name; !failure && is_program(beside))
    {
        return beside;
    }
    const char *path = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe)
    std::istringstream directories(path == nullptr ? "" : path);
    for (std::string directory; std::getline(directories, directory, ':');)
    {
        if (auto candidate = std::filesystem::path(directory) / program_name; is_program(candidate))
        {
            return candidate;
        }
    }
    throw connect_error(
        "Cannot find the program vantor_server in the directory of this program or in PATH: install it, set "
        "VANTOR_SERVER to its path, or connect to a running server with --connect.");
}

server_process::server_process(const std::filesystem::path &program,
                               const std::vector<std::string> &arguments,
                               std::chrono::milliseconds ending_time)
    : ending_time_(ending_time)
{
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
    {
        throw connect_error("Cannot start " + program.string() + ": " + system_message(errno) + ".");
    }
    link_ = ends[0];
    const int failure = start(program, arguments, ends[1]);
    close(ends[1]);
    if (failure != 0)
    {
        close(link_);
        throw connect_error("Cannot start " + program.string() + ": " + system_message(failure) + ".");
    }
}

server_process::~server_process()
{
    end();
}

int server_process::take_link() noexcept
{
    return std::exchange(link_, -1);
}

/** Starts the program with a socket as standard input and output; returns 0 or an error number. */
int server_process::start(const std::filesystem::path &program, const std::vector<std::string> &arguments,
                          int socket)
{
    std::vector<std::string> words{program.string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> pointers;
    pointers.reserve(words.size() + 1);
    for (auto &word : words)
    {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    return spawn_settings(socket).spawn(process_, program.c_str(), pointers);
}

/** Asks the server to exit, and kills it if it does not. */
void server_process::end() noexcept
{
    kill(process_, SIGTERM);
    if (!wait_for_end())
    {
        kill(process_, SIGKILL);
    }
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR)
    {
    }
    if (link_ >= 0)
    {
        close(link_);
    }
}

/** Waits for the server to exit; false if it takes too long. */
bool server_process::wait_for_end() const noexcept
{
    const int process = static_cast<int>(syscall(SYS_pidfd_open, process_, 0));
    if (process < 0)
    {
        // Linux before 5.3, and some sandboxes. Killing the server loses no data.
        return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + ending_time_;
    pollfd waiting{.fd = process, .events = POLLIN, .revents = 0};
    int ready = 0;
    do
    {
        const auto left = time_left(deadline, std::chrono::steady_clock::now);
        ready = poll(&waiting, 1, static_cast<int>(left.count()));
    } while (ready < 0 && errno == EINTR);
    close(process);
    return ready > 0;
}

std::string output_of_server(const std::vector<std::string> &arguments)
{
    server_process server(find_server_program(), arguments);
    const int link = server.take_link();
    std::string output;
    std::array<char, 4096> piece{};
    ssize_t count = 0;
    while (output.size() < most_output && (count = read(link, piece.data(), piece.size())) != 0)
    {
        if (count < 0 && errno != EINTR)
        {
            break;
        }
        output.append(piece.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
    }
    close(link);
    return output;
}

} // namespace vantor
