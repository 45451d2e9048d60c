/** @file
 * Runs the program gnuplot.
 */
#include "plot/gnuplot.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <string_view>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "plot/drawing_stopped.h"

namespace vantor
{

std::string gnuplot_quote(const std::string &text)
{
    std::string quoted = "'";
    for (const char c : text)
    {
        // A line feed would end the string, and what follows would be a command.
        const bool is_control = static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
        quoted += c == '\'' ? std::string("''") : std::string(1, is_control ? '?' : c);
    }
    return quoted + "'";
}

namespace
{

/** How often to check for a request to stop, in milliseconds. */
constexpr int patience = 100;

/** Waits until a process has ended and returns its status; ends it if asked to stop. */
int await_end(pid_t process, const std::function<bool()> &stop)
{
    // If the system does not support it, poll() only waits.
    const auto ending = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    int status = 0;
    while (waitpid(process, &status, WNOHANG) == 0)
    {
        if (stop && stop())
        {
            kill(process, SIGKILL);
        }
        pollfd waiting{.fd = ending, .events = POLLIN, .revents = 0};
        poll(&waiting, 1, patience);
    }
    if (ending >= 0)
    {
        close(ending);
    }
    return status;
}

/** The environment, without variables that change what gnuplot draws. */
std::vector<char *> environment()
{
    std::vector<char *> kept;
    for (char **variable = environ; *variable != nullptr; ++variable)
    {
        const std::string_view text = *variable;
        if (!text.starts_with("GNUTERM=") && !text.starts_with("GNUPLOT_"))
        {
            kept.push_back(*variable);
        }
    }
    kept.push_back(nullptr);
    return kept;
}

/** Starts gnuplot, without the settings of the user; what it prints goes to a file. */
pid_t start(const std::filesystem::path &script, const std::filesystem::path &messages)
{
    std::string name = "gnuplot";
    std::string option = "--default-settings";
    std::string argument = script.string();
    const std::array<char *, 4> arguments{name.data(), option.data(), argument.data(), nullptr};
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, messages.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    pid_t process = 0;
    const int failure =
        posix_spawnp(&process, name.c_str(), &actions, nullptr, arguments.data(), environment().data());
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0)
    {
        throw error("Cannot start gnuplot, which draws the picture: " +
                    (failure == ENOENT ? "install it (package gnuplot-nox)."
                                       : std::generic_category().message(failure) + "."));
    }
    return process;
}

/** The start of a text file, as one line. */
std::string read_line_of(const std::filesystem::path &path)
{
    constexpr size_t most = 500;
    std::ifstream file(path);
    std::string line;
    for (std::string word; line.size() < most && file >> word;)
    {
        line += (line.empty() ? "" : " ") + word;
    }
    return line.size() > most ? line.substr(0, most) + "…" : line;
}

/** Why gnuplot has failed. */
std::string describe_failure(int status, const std::string &printed)
{
    if (WIFSIGNALED(status))
    {
        return "signal " + std::to_string(WTERMSIG(status)) + " ended it.";
    }
    return printed.empty() ? "it gave no reason." : printed;
}

} // namespace

std::string run_gnuplot(const std::filesystem::path &script, const std::filesystem::path &messages,
                        const std::function<bool()> &stop)
{
    const int status = await_end(start(script, messages), stop);
    if (stop && stop())
    {
        throw drawing_stopped();
    }
    auto printed = read_line_of(messages);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    {
        throw error("gnuplot failed to draw the picture: " + describe_failure(status, printed));
    }
    return printed;
}

} // namespace vantor
