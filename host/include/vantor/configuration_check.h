/** @file
 * Checks a configuration document without a server.
 */
#ifndef VANTOR_CONFIGURATION_CHECK_H
#define VANTOR_CONFIGURATION_CHECK_H

#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/configuration_fault.h"

namespace vantor
{

/**
 * Checks a document against the schema and, if each single member is valid, against the rules between
 * members, then against the highest rates of a simulated sensor. It does not check which sensors a server
 * has.
 *
 * @param most  how many faults to describe
 * @return the faults; none if the document is valid
 */
fault_list find_faults(const nlohmann::json &document, size_t most = most_faults);

/** Like find_faults, but returns only those that are described. */
std::vector<configuration_fault> check_configuration(const nlohmann::json &document);

} // namespace vantor

#endif
