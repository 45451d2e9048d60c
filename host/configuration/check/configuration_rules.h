/** @file
 * The rules between the members of a configuration document.
 */
#ifndef VANTOR_CONFIGURATION_RULES_H
#define VANTOR_CONFIGURATION_RULES_H

#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/configuration_fault.h"

namespace vantor
{

/**
 * Checks a document against the rules between members, which are in docs/k330.json.
 *
 * @param document  a document in which every single member is valid according to the schema
 * @param found     where faults are added
 */
void check_rules(const nlohmann::json &document, fault_list &found);

} // namespace vantor

#endif
