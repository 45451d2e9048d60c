/** @file
 * Suggests what to do after a command.
 */
#include "commands/next_command.h"

#include <ostream>
#include <string_view>

#include "recording/printable.h"

namespace vantor
{
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
    return printable(text + "'");
}

void suggest(const command_streams &streams, const std::string &command, const std::filesystem::path &file,
             const std::string &connect)
{
    if (streams.terminal)
    {
        // Otherwise a name that begins with "-" would be an option.
        const bool is_option = file.string().starts_with('-');
        streams.err << "next: " << command << " " << shell_word((is_option ? "./" : "") + file.string())
                    << (connect.empty() ? "" : " --connect " + shell_word(connect)) << "\n";
    }
}

} // namespace vantor
