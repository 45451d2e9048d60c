/** @file
 * Checks a configuration document before a server sees it.
 */
#ifndef VANTOR_CONFIGURATION_CHECK_H
#define VANTOR_CONFIGURATION_CHECK_H

#include <vector>

#include <nlohmann/json.hpp>

#include "configuration/check/configuration_fault.h"

namespace vantor
{

/**
 * Checks a document against the schema and, when each member by itself is right, against the rules between
 * members. What depends on a server stays unchecked: which sensors it has, and whether they are fast enough.
 *
 * @return all faults; none when the document is fine
 */
std::vector<configuration_fault> check_configuration(const nlohmann::json &document);

} // namespace vantor

#endif
