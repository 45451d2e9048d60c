/** @file
 * Suggests what to do after a command.
 */
#include "commands/next_command.h"

#include <ostream>
#include <string_view>

#include "commands/printable.h"

namespace vantor
{
namespace
{

/** A word as a shell reads it: in single quotes if it contains more than common characters. */
std::string shell_word(const std::string &word)
{
    constexpr std::string_view common =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./:@%+=,-";
    if (!word.empty() && word.find_first_not_of(common) == std::string::npos)
    {
        return word;
    }
    std::string text = "'";
    for (const char each : word)
    {
        text += each == '\'' ? "'\\''" : std::string(1, each);
    }
    return text + "'";
}

} // namespace

void suggest(const command_streams &streams, const std::string &command, const std::filesystem::path &file)
{
    if (streams.terminal)
    {
        streams.err << "next: " << command << " " << printable(shell_word(file.string())) << "\n";
    }
}

} // namespace vantor
