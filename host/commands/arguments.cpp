/** @file
 * Parses command lines: converts commands given as plain data to CLI11 commands.
 */
#include "commands/arguments.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>
#include <ostream>
#include <set>
#include <utility>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "configuration/word_list.h"
#include "recording/number_text.h"
#include "recording/printable.h"
#include "version.h"

namespace vantor
{
namespace
{

/** Parses the complete text as a number; nothing if it is not a number or does not fit the type. */
template <typename number_t> std::optional<number_t> parse_number(const std::string &text)
{
    number_t value{};
    const auto *const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, value);
    return failure == std::errc{} && stop == end ? std::optional(value) : std::nullopt;
}

/** Parses a number and checks it against the bounds of an option. */
double read_number(const std::string &name, const std::string &text, const number_value &bounds)
{
    if (!bounds.infinity.empty() && text == bounds.infinity)
    {
        return std::numeric_limits<double>::infinity();
    }
    const auto number = parse_number<double>(text);
    if (!number || !std::isfinite(*number) || (bounds.above && *number <= *bounds.above) ||
        (bounds.most && *number > *bounds.most))
    {
        throw CLI::ValidationError(
            name, '"' + text + "\" is not a number" +
                      (bounds.above ? " above " + fixed(*bounds.above, 0) : std::string()) +
                      (bounds.most ? " and at most " + fixed(*bounds.most, 0) : std::string()) +
                      (bounds.infinity.empty() ? std::string() : ", nor \"" + bounds.infinity + '"'));
    }
    return *number;
}

/** Parses a whole number and checks it against the bounds of an option. */
uint64_t read_whole_number(const std::string &name, const std::string &text, uint64_t least, uint64_t most)
{
    const auto number = parse_number<uint64_t>(text);
    if (!number || *number < least || *number > most)
    {
        throw CLI::ValidationError(name, '"' + text + "\" is not a whole number from " +
                                             std::to_string(least) + " to " + std::to_string(most));
    }
    return *number;
}

/** Rejects an empty value of an option. */
[[noreturn]] void refuse_empty_value(const command_option &option)
{
    throw CLI::ValidationError(option.name, "the value is empty; expected " +
                                                (is_option(option) ? option.value_name : option.name) + ": " +
                                                option.help);
}

/** Returns the value of an option; an empty one is rejected. */
std::string read_text(const command_option &option, const std::string &text)
{
    if (text.empty())
    {
        refuse_empty_value(option);
    }
    return text;
}

/** Returns a word; it must be one of several. */
std::string read_choice(const std::string &name, const std::string &text,
                        const std::vector<std::string> &words)
{
    if (std::find(words.begin(), words.end(), text) == words.end())
    {
        throw CLI::ValidationError(name, '"' + text + "\" is not one of " + join(words, ", "));
    }
    return text;
}

/** Adds an option to a CLI11 command, depending on the type of its value. */
class option_adder
{
public:
    option_adder(CLI::App &app, const command_option &option) : app_(app), option_(option)
    {
    }

    CLI::Option *operator()(bool *target) const
    {
        return app_.add_flag(option_.name, *target, option_.help);
    }

    CLI::Option *operator()(std::string *target) const
    {
        return add(
            [target, option = option_](const std::string &text) { *target = read_text(option, text); });
    }

    CLI::Option *operator()(std::filesystem::path *target) const
    {
        return add(
            [target, option = option_](const std::string &text) { *target = read_text(option, text); });
    }

    CLI::Option *operator()(std::vector<std::string> *target) const
    {
        return add_list([target, option = option_](const std::string &text) {
            target->push_back(read_text(option, text));
        });
    }

    CLI::Option *operator()(const number_value &value) const
    {
        return add([name = option_.name, value](const std::string &text) {
            *value.target = read_number(name, text, value);
        });
    }

    CLI::Option *operator()(const whole_number_value &value) const
    {
        return add([name = option_.name, value](const std::string &text) {
            *value.target = read_whole_number(name, text, value.least, value.most);
        });
    }

    CLI::Option *operator()(const whole_numbers_value &value) const
    {
        return add_list([name = option_.name, value](const std::string &text) {
            value.target->push_back(read_whole_number(name, text, value.least, value.most));
        });
    }

    CLI::Option *operator()(const choice_value &value) const
    {
        return add([name = option_.name, value](const std::string &text) {
            *value.target = read_choice(name, text, value.words);
        });
    }

private:
    using reader = std::function<void(const std::string &)>;

    /** Adds an option that can be given once. */
    CLI::Option *add(reader read) const
    {
        const auto read_first = [read = std::move(read)](const CLI::results_t &texts) {
            read(texts.front());
            return true;
        };
        return app_.add_option(option_.name, read_first, option_.help);
    }

    /**
     * Adds an option that can be given several times, or an argument that accepts any number of words. The
     * lists of CLI11 would also split "[a,b]", which may be a file name.
     */
    CLI::Option *add_list(reader read) const
    {
        constexpr int any_number = CLI::detail::expected_max_vector_size;
        const auto read_all = [read = std::move(read)](const CLI::results_t &texts) {
            for (const auto &text : texts)
            {
                read(text);
            }
            return true;
        };
        return app_.add_option(option_.name, read_all, option_.help)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->expected(is_option(option_) ? 1 : any_number, any_number);
    }

    CLI::App &app_;
    const command_option &option_;
};

/** Whether an option is a flag, which has no value. */
bool is_flag(const command_option &option)
{
    return std::holds_alternative<bool *>(option.value);
}

/** Adds a command with its options. */
void add_command(CLI::App &app, const command &what, const command_streams &streams, exit_code &result)
{
    auto *added = app.add_subcommand(what.name, what.help)->group("Commands");
    for (const auto &option : what.options)
    {
        auto *const made = std::visit(option_adder(*added, option), option.value);
        made->required(option.required);
        if (!is_flag(option))
        {
            made->type_name(option.value_name)->default_str(option.default_value);
        }
    }
    added->footer(what.footer);
    added->callback([&what, &streams, &result] { result = what.run(streams); });
}

/** Whether an option can be given several times: its values make a list, or it is a flag. */
bool is_repeatable(const command_option &option)
{
    return is_flag(option) || std::holds_alternative<whole_numbers_value>(option.value) ||
           std::holds_alternative<std::vector<std::string> *>(option.value);
}

/** Rejects an option without its value: CLI11 would use the next word, even if that is an option. */
void refuse_missing_value(const command_option &option, const std::string &word, const std::string *next)
{
    if (word == option.name + "=")
    {
        refuse_empty_value(option);
    }
    if (word == option.name && next == nullptr)
    {
        throw CLI::ValidationError(option.name, "the value is missing; expected " + option.value_name);
    }
    if (word == option.name && next->starts_with("--"))
    {
        throw CLI::ValidationError(option.name, "the value is missing; if it is \"" + *next + "\", write " +
                                                    word + "=" + *next);
    }
}

/** Rejects a flag with a value, and another option without one. */
void check_value(const command_option &option, const std::string &word, const std::string *next)
{
    if (!is_flag(option))
    {
        refuse_missing_value(option, word, next);
    }
    else if (word != option.name)
    {
        throw CLI::ValidationError(option.name + " takes no value");
    }
}

/** Rejects options of a command with a missing or surplus value, and those that are given too often. */
void check_values(const command &what, const std::vector<std::string> &arguments)
{
    std::set<std::string> given;
    const auto end = std::find(arguments.begin(), arguments.end(), "--");
    for (auto word = arguments.begin(); word != end; ++word)
    {
        const auto name = word->substr(0, word->find('='));
        const auto option = std::find_if(what.options.begin(), what.options.end(), [&](const auto &each) {
            return is_option(each) && each.name == name;
        });
        if (option == what.options.end())
        {
            continue;
        }
        const auto next = std::next(word);
        check_value(*option, *word, next == end ? nullptr : &*next);
        if (!given.insert(name).second && !is_repeatable(*option))
        {
            throw CLI::ValidationError(name + " is given twice");
        }
    }
}

/** Rejects options with a missing or surplus value, if the first argument is a command. */
void check_values(const std::vector<command> &commands, const std::vector<std::string> &arguments)
{
    for (const auto &each : commands)
    {
        if (!arguments.empty() && arguments.front() == each.name)
        {
            check_values(each, arguments);
        }
    }
}

/** Describes unexpected arguments. */
std::string describe_unexpected(const std::vector<std::string> &words)
{
    std::string text = words.size() == 1 ? "Unexpected argument:" : "Unexpected arguments:";
    for (const auto &word : words)
    {
        text += " " + word;
    }
    return text;
}

/** Describes what is wrong with a command line. */
std::string describe(const CLI::App &app, const CLI::ParseError &failure)
{
    auto words = app.remaining(true);
    // "--" ends the options, and is allowed anywhere.
    std::erase(words, "--");
    const bool has_command = !app.get_subcommands().empty();
    if (words.empty())
    {
        const bool lacks_command =
            !has_command && dynamic_cast<const CLI::RequiredError *>(&failure) != nullptr;
        return lacks_command ? "A command is required." : failure.what();
    }
    if (!has_command && !words.front().starts_with("-"))
    {
        return "\"" + words.front() + "\" is not a vantor command.";
    }
    return describe_unexpected(words);
}

/** Prints what is wrong with a command line, or the help or version that was requested. */
exit_code explain(const CLI::App &app, const CLI::ParseError &failure, const command_streams &streams)
{
    if (failure.get_exit_code() == 0)
    {
        app.exit(failure, streams.out, streams.err);
        return exit_code::success;
    }
    streams.err << "vantor: " << printable(describe(app, failure)) << "\n" << help_hint;
    return exit_code::usage;
}

} // namespace

exit_code run_command(const std::vector<std::string> &arguments, const std::vector<command> &commands,
                      const std::string &footer, const command_streams &streams)
{
    exit_code result = exit_code::success;
    CLI::App app("Measure with radar sensors through a Vantor server.", "vantor");
    app.set_version_flag("--version", std::string("vantor ") + version);
    app.require_subcommand(1);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.get_formatter()->label("Positionals", "Arguments");
    app.footer(footer);
    for (const auto &each : commands)
    {
        add_command(app, each, streams, result);
    }
    try
    {
        check_values(commands, arguments);
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        app.parse(reversed);
    }
    catch (const CLI::ParseError &failure)
    {
        return explain(app, failure, streams);
    }
    return result;
}

} // namespace vantor
