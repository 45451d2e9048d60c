/** @file
 * Runs the program gnuplot.
 */
#include "plot/gnuplot.h"

#include <array>
#include <cerrno>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vantor/errors.h"

namespace vantor
{

std::string gnuplot_quote(const std::string &text)
{
    std::string quoted = "'";
    for (const char c : text)
    {
        quoted += c == '\'' ? std::string("''") : std::string(1, c);
    }
    return quoted + "'";
}

void run_gnuplot(const std::filesystem::path &script)
{
    std::string name = "gnuplot";
    std::string argument = script.string();
    const std::array<char *, 3> arguments{name.data(), argument.data(), nullptr};
    pid_t process = 0;
    if (posix_spawnp(&process, name.c_str(), nullptr, nullptr, arguments.data(), environ) != 0)
    {
        throw error("Cannot start gnuplot, which draws the picture: install it (package gnuplot-nox).");
    }
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR)
    {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    {
        throw error("gnuplot failed to draw the picture; see the message that it printed.");
    }
}

} // namespace vantor
