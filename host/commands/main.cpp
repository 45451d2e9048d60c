/** @file
 * The program `vantor`.
 */
#include <csignal>
#include <iostream>

#include <unistd.h>

#include "commands/command_line.h"

int main(int argc, char **argv)
{
    // A file that would become too large is an error of writing.
    std::signal(SIGXFSZ, SIG_IGN); // NOLINT(cert-err33-c): cannot fail for a valid signal
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const vantor::command_streams streams{
        .out = std::cout, .err = std::cerr, .terminal = isatty(STDERR_FILENO) != 0};
    return static_cast<int>(vantor::run_command_line(arguments, streams));
}
