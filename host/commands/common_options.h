/** @file
 * Options that several commands have.
 */
#ifndef VANTOR_COMMON_OPTIONS_H
#define VANTOR_COMMON_OPTIONS_H

#include <filesystem>
#include <string>

#include <CLI/App.hpp>

namespace vantor
{

/** Adds `--connect WHERE`; the variable holds the default. */
void add_connect_option(CLI::App &command, std::string &where);

/** Adds `--json`. */
void add_json_flag(CLI::App &command, bool &json);

/** Adds the argument RECORDING. */
void add_recording_argument(CLI::App &command, std::filesystem::path &recording);

} // namespace vantor

#endif
