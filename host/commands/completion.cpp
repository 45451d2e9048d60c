/** @file
 * `vantor completion`.
 */
#include "commands/completion.h"

#include <memory>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

namespace vantor
{
namespace
{

constexpr const char *footer = R"(Examples:
  source <(vantor completion bash)
  vantor completion zsh > "${fpath[1]}/_vantor"
  vantor completion fish > ~/.config/fish/completions/vantor.fish)";

/** The long options of a command: "--help --frames …". */
std::string long_options(const CLI::App &command)
{
    std::string text;
    for (const auto *option : command.get_options())
    {
        for (const auto &name : option->get_lnames())
        {
            text += (text.empty() ? "--" : " --") + name;
        }
    }
    return text;
}

/** The names of all commands. */
std::string command_names(const CLI::App &app)
{
    std::string text;
    for (const auto *command : app.get_subcommands({}))
    {
        text += (text.empty() ? "" : " ") + command->get_name();
    }
    return text;
}

/** A script for bash: names of files and directories, but for options and where a word is asked for. */
void write_bash(const CLI::App &app, std::ostream &out)
{
    out << "_vantor()\n{\n"
           "    local word=\"${COMP_WORDS[COMP_CWORD]}\" before=\"${COMP_WORDS[COMP_CWORD-1]}\" words=\"\"\n"
           "    local IFS=$'\\n'\n"
           "    case \"${COMP_WORDS[1]}\" in\n";
    for (const auto *command : app.get_subcommands({}))
    {
        out << "    " << command->get_name() << ") words=\"" << long_options(*command) << "\" ;;\n";
    }
    out << "    esac\n"
           "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
           "        words=\""
        << command_names(app) << " " << long_options(app)
        << "\"\n"
           "    elif [ \"$before\" = completion ]; then\n"
           "        words=\"bash zsh fish\"\n"
           "    elif [ \"$before\" = --format ]; then\n"
           "        words=\"csv npy\"\n"
           "    elif [ \"${word#-}\" = \"$word\" ]; then\n"
           "        compopt -o filenames 2>/dev/null\n"
           "        COMPREPLY=($(compgen -f -- \"$word\"))\n"
           "        return\n"
           "    fi\n"
           "    COMPREPLY=($(compgen -W \"${words// /$IFS}\" -- \"$word\"))\n"
           "}\n"
           "complete -F _vantor vantor\n";
}

/** A text within single quotes of fish. */
std::string fish_quote(const std::string &text)
{
    std::string quoted = "'";
    for (const char c : text)
    {
        quoted += (c == '\'' || c == '\\' ? "\\" : "") + std::string(1, c);
    }
    return quoted + "'";
}

/** A script for zsh: that of bash, in zsh's compatibility mode. */
void write_zsh(const CLI::App &app, std::ostream &out)
{
    out << "#compdef vantor\nautoload -U +X bashcompinit && bashcompinit\n";
    write_bash(app, out);
}

/** A script for fish. */
void write_fish(const CLI::App &app, std::ostream &out)
{
    for (const auto *command : app.get_subcommands({}))
    {
        out << "complete -c vantor -n __fish_use_subcommand -f -a " << command->get_name() << " -d "
            << fish_quote(command->get_description()) << "\n";
        for (const auto *option : command->get_options())
        {
            for (const auto &name : option->get_lnames())
            {
                out << "complete -c vantor -n '__fish_seen_subcommand_from " << command->get_name() << "' -l "
                    << name << " -d " << fish_quote(option->get_description()) << "\n";
            }
        }
    }
}

} // namespace

void add_completion_command(CLI::App &app, command_streams streams, exit_code &result)
{
    auto *command = app.add_subcommand("completion", "Print a script that lets a shell complete commands.");
    auto shell = std::make_shared<std::string>();
    command->add_option("SHELL", *shell, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}).description(""))
        ->type_name("");
    command->footer(footer);
    command->callback([&app, shell, streams, &result] {
        if (*shell == "bash")
        {
            write_bash(app, streams.out);
        }
        else if (*shell == "zsh")
        {
            write_zsh(app, streams.out);
        }
        else
        {
            write_fish(app, streams.out);
        }
        result = exit_code::success;
    });
}

} // namespace vantor
