/** @file
 * Opens a page in the browser of the user.
 */
#include "commands/browser.h"

#include <array>
#include <cstdlib>
#include <fstream>

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

namespace vantor
{
namespace
{

/** Whether there is a desktop; without one, a browser would use the terminal. */
bool has_desktop()
{
    return std::getenv("DISPLAY") != nullptr || std::getenv("WAYLAND_DISPLAY") != nullptr;
}

/** Starts the program that opens files on this desktop, apart from the terminal. */
void open_file(const std::filesystem::path &file)
{
    std::string name = "xdg-open";
    std::string argument = file.string();
    const std::array<char *, 3> arguments{name.data(), argument.data(), nullptr};
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);
    posix_spawnattr_t attributes{};
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    pid_t process = 0;
    posix_spawnp(&process, name.c_str(), &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
}

} // namespace

void open_browser(const std::string &url, const std::filesystem::path &redirect)
{
    if (!has_desktop())
    {
        return;
    }
    std::ofstream(redirect) << "<!doctype html><meta http-equiv=\"refresh\" content=\"0; url=" << url
                            << "\">\n";
    open_file(redirect);
}

} // namespace vantor
