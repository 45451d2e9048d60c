/** @file
 * Runs the program gnuplot.
 */
#include "plot/gnuplot.h"

#include <array>
#include <csignal>

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
            kill(process, SIGTERM);
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

} // namespace

void run_gnuplot(const std::filesystem::path &script, const std::function<bool()> &stop)
{
    std::string name = "gnuplot";
    std::string argument = script.string();
    const std::array<char *, 3> arguments{name.data(), argument.data(), nullptr};
    pid_t process = 0;
    if (posix_spawnp(&process, name.c_str(), nullptr, nullptr, arguments.data(), environ) != 0)
    {
        throw error("Cannot start gnuplot, which draws the picture: install it (package gnuplot-nox).");
    }
    const int status = await_end(process, stop);
    if (stop && stop())
    {
        throw drawing_stopped();
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    {
        throw error("gnuplot failed to draw the picture; see the message that it printed.");
    }
}

} // namespace vantor
