/** @file
 * Options that several commands have.
 */
#ifndef VANTOR_COMMON_OPTIONS_H
#define VANTOR_COMMON_OPTIONS_H

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>

#include <CLI/App.hpp>
#include <CLI/Validators.hpp>
#include <nlohmann/json.hpp>

namespace vantor
{

/** Adds `--connect WHERE`; the variable holds the default. */
void add_connect_option(CLI::App &command, std::string &where);

/** Adds `--json`. */
void add_json_flag(CLI::App &command, bool &json);

/** Prints JSON for programs; bytes that are no UTF-8, which file names may hold, are replaced. */
void print_json(std::ostream &out, const nlohmann::ordered_json &document);

/** A check that an option's value is a finite number, and above a bound when there is one. */
CLI::Validator finite_number(std::optional<double> bound = std::nullopt);

/** A check that an option's value is a whole number from 1 to a bound. */
CLI::Validator count_up_to(std::uint64_t bound);

/** Adds the argument RECORDING. */
void add_recording_argument(CLI::App &command, std::filesystem::path &recording);

} // namespace vantor

#endif
