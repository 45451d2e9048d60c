/** @file
 * Checks a configuration document before it is used, and prints its faults.
 */
#ifndef VANTOR_VALIDATION_H
#define VANTOR_VALIDATION_H

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "commands/command.h"
#include "vantor/configuration_fault.h"

namespace vantor
{

/** `--no-validate`. */
command_option no_validate_flag(bool &target);

/** Prints one line for each fault of a document that is described, and the number of the others. */
void print_faults(std::ostream &out, const std::string &file, const fault_list &faults);

/** Faults of a document as JSON. */
nlohmann::ordered_json faults_json(const std::vector<configuration_fault> &faults);

/**
 * Checks a document; prints its faults if there are any.
 *
 * @param configuration  the document
 * @param file           its name for the messages
 * @param err            where the faults are printed
 * @param advice         what the error message adds
 * @throws configuration_error if the document has a fault
 */
void require_valid(const nlohmann::json &configuration, const std::filesystem::path &file, std::ostream &err,
                   const std::string &advice = {});

/** Advice for commands with no_validate_flag. */
inline constexpr const char *no_validate_advice = ", or use --no-validate if the server accepts it";

} // namespace vantor

#endif
