/** @file
 * The names of the log levels.
 */
#ifndef ZET_LOG_LEVELS_H
#define ZET_LOG_LEVELS_H

#include <array>
#include <cstddef>

#include "zet_definitions_common.h"

/** The names of the log levels in commands and messages, each at the index of its level. */
constexpr std::array<const char *, ZET_LOG_LEVEL_DEBUG + 1> zet_log_level_words = {"ERROR", "WARNING", "INFO",
                                                                                   "VERBOSE", "DEBUG"};

/** The prefix of a line in a written log, for each level: its name in lower case, a colon and a space. */
constexpr auto zet_log_level_prefixes = [] {
    std::array<std::array<char, sizeof "verbose: ">, zet_log_level_words.size()> prefixes{};
    for (size_t level = 0; level < prefixes.size(); ++level)
    {
        size_t length = 0;
        for (; zet_log_level_words[level][length] != '\0'; ++length)
        {
            prefixes[level].at(length) = static_cast<char>(zet_log_level_words[level][length] - 'A' + 'a');
        }
        prefixes[level].at(length) = ':';
        prefixes[level].at(length + 1) = ' ';
    }
    return prefixes;
}();

#endif
