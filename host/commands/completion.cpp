/** @file
 * `vantor completion`.
 */
#include "commands/completion.h"

#include <memory>
#include <ostream>
#include <string>

namespace vantor
{
namespace
{

constexpr const char *completion_footer = R"(Examples:
  source <(vantor completion bash)
  vantor completion zsh > "${fpath[1]}/_vantor"
  vantor completion fish > ~/.config/fish/completions/vantor.fish)";

/** The options of a command: "--help --frames …". */
std::string option_names(const command &what)
{
    std::string text = "--help";
    for (const auto &option : what.options)
    {
        text += is_option(option) ? " " + option.name : "";
    }
    return text;
}

/** Joins words with spaces. */
std::string join_words(const std::vector<std::string> &words)
{
    std::string text;
    for (const auto &word : words)
    {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

/** The names of all commands. */
std::string command_names(const std::vector<command> &commands)
{
    std::vector<std::string> names;
    names.reserve(commands.size());
    for (const auto &what : commands)
    {
        names.push_back(what.name);
    }
    return join_words(names);
}

/** What bash does after an option, or a command, that is followed by one of several words. */
void write_bash_choices(const std::vector<command> &commands, std::ostream &out)
{
    for (const auto &what : commands)
    {
        for (const auto &option : what.options)
        {
            if (const auto *const choice = std::get_if<choice_value>(&option.value))
            {
                out << "    elif [ \"$command $before\" = \"" << what.name << " "
                    << (is_option(option) ? option.name : what.name) << "\" ]; then\n        words=\""
                    << join_words(choice->words) << "\"\n";
            }
        }
    }
}

/**
 * The beginning of the function for bash: the word to complete, that before it, and the command. Bash takes
 * "--format=n" for three words.
 */
constexpr const char *bash_begin = R"(_vantor()
{
    local word="${COMP_WORDS[COMP_CWORD]}" before="${COMP_WORDS[COMP_CWORD-1]}"
    local command="${COMP_WORDS[1]}" words="" line="" IFS=$' \t\n'
    if [ "$word" = "=" ]; then
        word=""
    elif [ "$before" = "=" ]; then
        before="${COMP_WORDS[COMP_CWORD-2]}"
    fi
    COMPREPLY=()
    case "$command" in
)";

/** Its end: names of files and directories, except for options and where one of several words is expected. */
constexpr const char *bash_end = R"(    elif [ "${word#-}" = "$word" ]; then
        compopt -o filenames 2>/dev/null
        while IFS= read -r line; do COMPREPLY+=("$line"); done < <(compgen -f -- "$word")
        return
    fi
    while IFS= read -r line; do COMPREPLY+=("$line"); done < <(compgen -W "$words" -- "$word")
}
complete -F _vantor vantor
)";

/** A script for bash, which zsh understands too. */
void write_bash(const std::vector<command> &commands, std::ostream &out)
{
    out << bash_begin;
    for (const auto &what : commands)
    {
        out << "    " << what.name << ") words=\"" << option_names(what) << "\" ;;\n";
    }
    out << "    esac\n"
           "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
           "        words=\""
        << command_names(commands) << " --help --version\"\n";
    write_bash_choices(commands, out);
    out << bash_end;
}

/** A text within single quotes of fish. */
std::string fish_quote(const std::string &text)
{
    std::string quoted = "'";
    for (const char c : text)
    {
        if (c == '\'' || c == '\\')
        {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted + "'";
}

/** A script for zsh: that of bash, in zsh's compatibility mode. */
void write_zsh(const std::vector<command> &commands, std::ostream &out)
{
    out << "#compdef vantor\nautoload -U +X bashcompinit && bashcompinit\n";
    write_bash(commands, out);
}

/** What fish offers after a command: an option, or the words of an argument. */
void write_fish_option(const command &what, const command_option &option, std::ostream &out)
{
    const auto *const choice = std::get_if<choice_value>(&option.value);
    if (!is_option(option) && choice == nullptr)
    {
        // The name of a file, which fish completes by itself.
        return;
    }
    out << "complete -c vantor -n '__fish_seen_subcommand_from " << what.name << "'"
        << (is_option(option) ? " -l " + option.name.substr(2) : "")
        << (choice == nullptr ? "" : " -x -a " + fish_quote(join_words(choice->words))) << " -d "
        << fish_quote(option.help) << "\n";
}

/** A script for fish. */
void write_fish(const std::vector<command> &commands, std::ostream &out)
{
    bool no_value = false;
    const command_option help = {
        .name = "--help", .help = "Print this help message and exit", .value = &no_value};
    for (const auto &what : commands)
    {
        out << "complete -c vantor -n __fish_use_subcommand -f -a " << what.name << " -d "
            << fish_quote(what.help) << "\n";
        write_fish_option(what, help, out);
        for (const auto &option : what.options)
        {
            write_fish_option(what, option, out);
        }
    }
}

} // namespace

command completion_command(std::function<std::vector<command>()> list_commands)
{
    auto shell = std::make_shared<std::string>();
    return {.name = "completion",
            .help = "Print a script that lets a shell complete commands.",
            .footer = completion_footer,
            .options = {{.name = "SHELL",
                         .help = "bash, zsh or fish",
                         .value = choice_value{.target = shell.get(), .words = {"bash", "zsh", "fish"}},
                         .required = true}},
            .run = [shell, list_commands = std::move(list_commands)](const command_streams &streams) {
                const auto write = *shell == "bash" ? write_bash : *shell == "zsh" ? write_zsh : write_fish;
                write(list_commands(), streams.out);
                return exit_code::success;
            }};
}

} // namespace vantor
