/** @file
 * Reads command lines: turns commands that are plain data into those of CLI11.
 */
#include "commands/arguments.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <ostream>
#include <utility>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "commands/printable.h"
#include "commands/text_table.h"
#include "version.h"

namespace vantor
{
namespace
{

/** Reads a whole number, all of the text; nothing when it is not one or does not fit. */
template <typename number_t> std::optional<number_t> parse_number(const std::string &text)
{
    number_t value{};
    const auto *const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, value);
    return failure == std::errc{} && stop == end ? std::optional(value) : std::nullopt;
}

/** Reads a finite number within the bound of an option. */
double take_number(const std::string &name, const std::string &text, std::optional<double> above)
{
    const auto number = parse_number<double>(text);
    if (!number || !std::isfinite(*number) || (above && *number <= *above))
    {
        throw CLI::ValidationError(name, text + " is not a number" +
                                             (above ? " above " + fixed(*above, 0) : std::string()));
    }
    return *number;
}

/** Reads a whole number within the bounds of an option. */
uint64_t take_whole_number(const std::string &name, const std::string &text, uint64_t least, uint64_t most)
{
    const auto number = parse_number<uint64_t>(text);
    if (!number || *number < least || *number > most)
    {
        throw CLI::ValidationError(name, text + " is not a whole number from " + std::to_string(least) +
                                             " to " + std::to_string(most));
    }
    return *number;
}

/** Refuses the empty value of an option. */
[[noreturn]] void refuse_empty_value(const command_option &option)
{
    throw CLI::ValidationError(option.name, "the value is empty; give " +
                                                (is_option(option) ? option.value_name : option.name) + ": " +
                                                option.help);
}

/** Reads a text, which may not be empty. */
std::string take_text(const command_option &option, const std::string &text)
{
    if (text.empty())
    {
        refuse_empty_value(option);
    }
    return text;
}

/** Adds an option to a command of CLI11, by the kind of its value. */
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
            [target, option = option_](const std::string &text) { *target = take_text(option, text); });
    }

    CLI::Option *operator()(std::filesystem::path *target) const
    {
        return add(
            [target, option = option_](const std::string &text) { *target = take_text(option, text); });
    }

    CLI::Option *operator()(std::vector<std::string> *target) const
    {
        return add_list([target, option = option_](const std::string &text) {
            target->push_back(take_text(option, text));
        });
    }

    CLI::Option *operator()(const number_value &value) const
    {
        return add([name = option_.name, value](const std::string &text) {
            *value.target = take_number(name, text, value.above);
        });
    }

    CLI::Option *operator()(const whole_number_value &value) const
    {
        return add([name = option_.name, value](const std::string &text) {
            *value.target = take_whole_number(name, text, value.least, value.most);
        });
    }

    CLI::Option *operator()(const whole_numbers_value &value) const
    {
        return add_list([name = option_.name, value](const std::string &text) {
            value.target->push_back(take_whole_number(name, text, value.least, value.most));
        });
    }

    CLI::Option *operator()(const choice_value &value) const
    {
        return add([target = value.target](const std::string &text) { *target = text; })
            ->check(CLI::IsMember(value.words).description(""));
    }

private:
    using taker = std::function<void(const std::string &)>;

    /** Adds an option that is given once. */
    CLI::Option *add(taker take) const
    {
        const auto take_first = [take = std::move(take)](const CLI::results_t &texts) {
            take(texts.front());
            return true;
        };
        return app_.add_option(option_.name, take_first, option_.help);
    }

    /**
     * Adds an option that may be given many times, or an argument that takes any number of words. CLI11's own
     * lists would also split "[a,b]", which may be the name of a file.
     */
    CLI::Option *add_list(taker take) const
    {
        constexpr int any_number = CLI::detail::expected_max_vector_size;
        const auto take_all = [take = std::move(take)](const CLI::results_t &texts) {
            for (const auto &text : texts)
            {
                take(text);
            }
            return true;
        };
        return app_.add_option(option_.name, take_all, option_.help)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->expected(is_option(option_) ? 1 : any_number, any_number);
    }

    CLI::App &app_;
    const command_option &option_;
};

/** Adds a command with its options. */
void add_command(CLI::App &app, const command &what, const command_streams &streams, exit_code &result)
{
    auto *added = app.add_subcommand(what.name, what.help);
    for (const auto &option : what.options)
    {
        auto *const made = std::visit(option_adder(*added, option), option.value);
        made->required(option.required);
        if (!std::holds_alternative<bool *>(option.value))
        {
            made->type_name(option.value_name)->default_str(option.default_value);
        }
    }
    added->footer(what.footer);
    added->callback([&what, &streams, &result] { result = what.run(streams); });
}

/** Refuses an option without its value: CLI11 would take the word that follows, even if that is an option. */
void refuse_missing_value(const command_option &option, const std::string &word, const std::string &next)
{
    if (word == option.name + "=")
    {
        refuse_empty_value(option);
    }
    if (word == option.name && next.starts_with("--"))
    {
        throw CLI::ValidationError(option.name, "the value is missing; if it is \"" + next + "\", write " +
                                                    word + "=" + next);
    }
}

/** Refuses options of a command that lack their values. */
void check_values(const command &what, const std::vector<std::string> &arguments)
{
    const auto end = std::find(arguments.begin(), arguments.end(), "--");
    for (auto word = arguments.begin(); word != end; ++word)
    {
        const auto next = std::next(word);
        for (const auto &option : what.options)
        {
            if (is_option(option) && !std::holds_alternative<bool *>(option.value))
            {
                refuse_missing_value(option, *word, next == arguments.end() ? std::string() : *next);
            }
        }
    }
}

/** Refuses options that lack their values, where the arguments begin with a command. */
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

/** Says which arguments nobody asked for. */
std::string name_unexpected(const std::vector<std::string> &words)
{
    std::string text = words.size() == 1 ? "Unexpected argument:" : "Unexpected arguments:";
    for (const auto &word : words)
    {
        text += " " + word;
    }
    return text;
}

/** Says what is wrong with a command line. */
std::string describe(const CLI::App &app, const CLI::ParseError &failure)
{
    auto words = app.remaining(true);
    // "--" ends the options, and is expected anywhere.
    std::erase(words, "--");
    if (words.empty())
    {
        return failure.what();
    }
    if (app.get_subcommands().empty() && !words.front().starts_with("-"))
    {
        return "Unknown command \"" + words.front() + "\".";
    }
    return name_unexpected(words);
}

/** Says what is wrong with a command line, or prints the help or version that was asked for. */
exit_code explain(const CLI::App &app, const CLI::ParseError &failure, const command_streams &streams)
{
    if (failure.get_exit_code() == 0)
    {
        app.exit(failure, streams.out, streams.err);
        return exit_code::success;
    }
    streams.err << printable(describe(app, failure)) << "\nRun with --help for more information.\n";
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
