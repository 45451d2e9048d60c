/** @file
 * The rules of a configuration document that tie several of its members together.
 */
#ifndef VANTOR_CONFIGURATION_RULES_H
#define VANTOR_CONFIGURATION_RULES_H

#include <vector>

#include <nlohmann/json.hpp>

#include "configuration/check/configuration_fault.h"

namespace vantor
{

/**
 * Checks a document against the rules between members, those of docs/k330.json.
 *
 * @param document  a document in which every member by itself is as the schema asks
 * @return all faults
 */
std::vector<configuration_fault> check_rules(const nlohmann::json &document);

} // namespace vantor

#endif
