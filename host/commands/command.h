/** @file
 * A command: its name, its options as plain data, and the function that runs it.
 *
 * Only arguments.cpp uses the command-line library, which takes long to compile.
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

/** Where a command writes. */
struct command_streams
{
    std::ostream &out;     /**< results */
    std::ostream &err;     /**< errors, warnings and progress */
    bool terminal = false; /**< err is a terminal that can show a progress line */
};

/** A finite number, or a word for infinity. */
struct number_value
{
    std::optional<double> *target;
    std::optional<double> above = std::nullopt; /**< the number must be greater than this */
    std::optional<double> most = std::nullopt;  /**< the number must not be greater than this */
    std::string infinity = {};                  /**< word for infinity; empty if it is not allowed */
};

/** A whole number. */
struct whole_number_value
{
    uint64_t *target;
    uint64_t least = 1;
    uint64_t most = std::numeric_limits<uint64_t>::max();
};

/** Whole numbers; the option may be repeated, each time with one number. */
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
 * Where the value of an option is stored, and which values are allowed. A pointer to bool makes a flag, which
 * has no value; a list of strings accepts any number of arguments.
 */
using option_value = std::variant<bool *, std::string *, std::filesystem::path *, std::vector<std::string> *,
                                  number_value, whole_number_value, whole_numbers_value, choice_value>;

/** An option, a flag or an argument of a command. */
struct command_option
{
    std::string name; /**< such as "--frames"; without dashes for a positional argument */
    std::string help; /**< one line */
    option_value value;
    std::string value_name = {};    /**< placeholder for the value in the help, such as "NUMBER" */
    bool required = false;          /**< the command needs it */
    std::string default_value = {}; /**< shown in the help if not empty */
};

/** Whether it is an option or a flag, not a positional argument. */
inline bool is_option(const command_option &option)
{
    return option.name.starts_with("--");
}

/** A command. `run` owns the variables to which its options point. */
struct command
{
    std::string name;
    std::string help;   /**< one line */
    std::string footer; /**< text below the options in the help: examples */
    std::vector<command_option> options;
    std::function<exit_code(const command_streams &)> run; /**< called after the options have been set */
};

} // namespace vantor

#endif
