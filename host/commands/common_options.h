/** @file
 * Options shared by several commands.
 */
#ifndef VANTOR_COMMON_OPTIONS_H
#define VANTOR_COMMON_OPTIONS_H

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "commands/command.h"

namespace vantor
{

/** The placeholder of options whose value is the address of a server. */
inline constexpr const char *address_name = "ADDRESS";

/** `--connect ADDRESS`; the target contains the default. */
command_option connect_option(std::string &target);

/** `--json`. */
command_option json_flag(bool &target);

/** The argument RECORDING. */
command_option recording_argument(std::filesystem::path &target);

/** The argument CONFIG. */
command_option configuration_argument(std::filesystem::path &target);

/** The argument CONFIG of a command that can do without it. */
command_option optional_configuration_argument(std::filesystem::path &target);

/** Rejects a value that an option has twice; throws usage_error. */
void require_different(const char *option, const std::vector<uint64_t> &values);

/** Rejects an output file with a name that files of recordings have; throws usage_error. */
void require_no_recording_name(const char *option, const std::filesystem::path &file);

/** Throws an error if one of the sensors is not among those that are connected to a server. */
void require_connected(const std::vector<uint64_t> &sensors, const std::vector<unsigned> &connected);

/** Prints a JSON document. Bytes that are not UTF-8 (file names may contain them) are replaced, and
 * characters that would control a terminal are escaped. */
void print_json(std::ostream &out, const nlohmann::ordered_json &document);

} // namespace vantor

#endif
