/** @file
 * `vantor completion`.
 */
#include "commands/completion.h"

#include <memory>
#include <ostream>
#include <string>

#include "commands/common_options.h"
#include "commands/scan.h"
#include "configuration/word_list.h"

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

/** The names of all commands. */
std::string command_names(const std::vector<command> &commands)
{
    std::vector<std::string> names;
    names.reserve(commands.size());
    for (const auto &what : commands)
    {
        names.push_back(what.name);
    }
    return join(names, " ");
}

/** The beginnings of addresses. */
constexpr const char *address_kinds = "tcp: unix: serial: sim:";

/** Whether the value of an option is the address of a server. */
bool is_address(const command_option &option)
{
    return option.value_name == address_name;
}

/** Writes the part of the bash script that completes addresses, and the scene in "sim:--scene=FILE". */
void write_bash_addresses(const std::vector<command> &commands, std::ostream &out)
{
    out << "    elif [ \"$before\" = \"--scene\" ]; then\n        _vantor_address scene \"$word\"\n        "
           "return\n";
    for (const auto &what : commands)
    {
        for (const auto &option : what.options)
        {
            if (is_address(option))
            {
                out << "    elif [ \"$command $before\" = \"" << what.name << " " << option.name
                    << "\" ]; then\n        _vantor_address \"$kind\" \"$word\"\n        return\n";
            }
        }
    }
}

/** Writes the part of the bash script that completes the words of an option or argument with fixed choices.
 */
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
                    << join(choice->words, " ") << "\"\n";
            }
        }
    }
}

/**
 * The beginning of the bash function that completes an address, given its kind (empty if the word contains
 * it, "scene" for a scene) and the word. Spaces in the name of a scene get a backslash for parse_address().
 * Bash splits "unix:/tmp" into three words, except in quotes: then the completed word
 * contains what is before the completed part.
 */
constexpr const char *bash_address_begin = R"(_vantor_address()
{
    local kind="$1" word="$2" head="" line=""
    word="${word#[\"\']}"
    if [ -z "$kind" ] && [ "${word#*:}" != "$word" ]; then
        kind="${word%%:*}"
        head="$kind:"
        word="${word#*:}"
    fi
    if [ "$kind" = sim ]; then
        line="${word##*[ =]}"
        head="$head${word%"$line"}"
        word="$line"
    fi
    if [ -z "$kind" ] || [ -n "$head" ] || [ "$kind" = sim ]; then
        compopt -o nospace 2>/dev/null
    else
        compopt -o filenames 2>/dev/null
    fi
    while IFS= read -r line; do
        if [ -n "$head" ] && [ -d "$line" ]; then
            line="$line/"
        fi
        if [ "$kind" = sim ] || [ "$kind" = scene ]; then
            line="${line// /\\ }"
        fi
        COMPREPLY+=("$head$line")
    done < <(
        case "$kind:$head" in
        unix:* | scene:* | sim:*--scene[\ =]) compgen -f -- "$word" ;;
        sim:*) compgen -W "--scene=" -- "$word" ;;
)";

/** The end of this function. */
constexpr const char *bash_address_end = R"(        esac
    )
}

)";

/** Writes the bash function that completes an address. */
void write_bash_address(std::ostream &out)
{
    out << bash_address_begin << "        :) compgen -W \"" << address_kinds << "\" -- \"$word\" ;;\n"
        << "        serial:*) compgen -W \"$(";
    for (const auto *prefix : serial_device_prefixes)
    {
        out << "compgen -G '/dev/" << prefix << "*'; ";
    }
    out << ")\" -- \"$word\" ;;\n" << bash_address_end;
}

/**
 * The beginning of the main bash function: finds the word to complete, the word before it, and the command.
 * Bash splits "--format=n" and "unix:/tmp" into three words.
 */
constexpr const char *bash_begin = R"(_vantor()
{
    local word="${COMP_WORDS[COMP_CWORD]}" before="${COMP_WORDS[COMP_CWORD-1]}"
    local command="${COMP_WORDS[1]}" words="" line="" kind="" at=$((COMP_CWORD - 1)) IFS=$' \t\n'
    if [ "$word" = ":" ]; then
        kind="$before"
        word=""
        at=$((COMP_CWORD - 2))
    elif [ "$before" = ":" ]; then
        kind="${COMP_WORDS[COMP_CWORD-2]}"
        at=$((COMP_CWORD - 3))
    fi
    before="${COMP_WORDS[at]}"
    if [ "$word" = "=" ]; then
        word=""
    elif [ "$before" = "=" ]; then
        before="${COMP_WORDS[at-1]}"
    fi
    COMPREPLY=()
    case "$command" in
)";

/** The end of the bash function: completes file names, unless an option or a fixed choice is expected. */
constexpr const char *bash_end = R"(    elif [ "${word#-}" = "$word" ]; then
        compopt -o filenames 2>/dev/null
        while IFS= read -r line; do COMPREPLY+=("$line"); done < <(compgen -f -- "$word")
        return
    fi
    while IFS= read -r line; do COMPREPLY+=("$line"); done < <(compgen -W "$words" -- "$word")
}
complete -F _vantor vantor
)";

/** Writes the script for bash, which also works in zsh. */
void write_bash(const std::vector<command> &commands, std::ostream &out)
{
    write_bash_address(out);
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
    write_bash_addresses(commands, out);
    out << bash_end;
}

/** Quotes a text with single quotes for fish. */
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

/** Writes the script for zsh: the bash script, run in the compatibility mode of zsh. */
void write_zsh(const std::vector<command> &commands, std::ostream &out)
{
    out << "#compdef vantor\nautoload -U +X bashcompinit && bashcompinit\n";
    write_bash(commands, out);
}

/** Writes a line for fish: completes an option, or an argument with fixed choices. */
void write_fish_option(const command &what, const command_option &option, std::ostream &out)
{
    const auto *const choice = std::get_if<choice_value>(&option.value);
    if (!is_option(option) && choice == nullptr)
    {
        // A file name, which fish completes by default.
        return;
    }
    out << "complete -c vantor -n '__fish_seen_subcommand_from " << what.name << "'"
        << (is_option(option) ? " -l " + option.name.substr(2) : "")
        << (choice == nullptr ? "" : " -x -a " + fish_quote(join(choice->words, " ")))
        << (is_address(option) ? " -r -a " + fish_quote(address_kinds) : "") << " -d "
        << fish_quote(option.help) << "\n";
}

/** Writes the script for fish. */
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
            .help = "Print a completion script for a shell.",
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
