/** @file
 * What a command is: its name, its options as plain data, and the function that runs it.
 *
 * Only arguments.cpp knows the library that reads command lines, which takes long to compile.
 */
#ifndef VANTOR_COMMAND_H
#define VANTOR_COMMAND_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <limits>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "commands/exit_code.h"

namespace vantor
{

/** Where a command writes to. */
struct command_streams
{
    std::ostream &out;     /**< results */
    std::ostream &err;     /**< errors, warnings and progress */
    bool terminal = false; /**< err is a terminal, so that a line of progress can be shown */
};

/** A finite number. */
struct number_value
{
    std::optional<double> *target;
    std::optional<double> above = std::nullopt; /**< the number must be greater than this */
};

/** A whole number. */
struct whole_number_value
{
    uint64_t *target;
    uint64_t least = 1;
    uint64_t most = std::numeric_limits<uint64_t>::max();
};

/** Whole numbers, one for each time that the option is given. */
struct whole_numbers_value
{
    std::vector<uint64_t> *target;
    uint64_t least = 1;
    uint64_t most = std::numeric_limits<uint64_t>::max();
};

/** One of several words. */
struct choice_value
{
    std::string *target;
    std::vector<std::string> words;
};

/**
 * Where the value of an option goes, and what it may be. A pointer to bool makes a flag, which has no value;
 * a list of texts takes any number of arguments.
 */
using option_value = std::variant<bool *, std::string *, std::filesystem::path *, std::vector<std::string> *,
                                  number_value, whole_number_value, whole_numbers_value, choice_value>;

/** An option, a flag or an argument of a command. */
struct command_option
{
    std::string name; /**< "--frames"; without dashes that of an argument, which is known by its place */
    std::string help; /**< one line */
    option_value value;
    std::string value_name = {};    /**< stands for the value in the help, such as "NUMBER" */
    bool required = false;          /**< the command cannot do without it */
    std::string default_value = {}; /**< as the help shows it; empty to show none */
};

/** Whether it is an option or a flag, and not an argument. */
inline bool is_option(const command_option &option)
{
    return option.name.starts_with("--");
}

/** A command. What its options point to lives as long as `run`. */
struct command
{
    std::string name;
    std::string help;   /**< one line */
    std::string footer; /**< what stands below the options in the help: examples */
    std::vector<command_option> options;
    std::function<exit_code(const command_streams &)> run; /**< called once the options are filled in */
};

} // namespace vantor

#endif
