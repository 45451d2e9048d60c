/** @file
 * Checks a document against a JSON Schema.
 *
 * Of JSON Schema 2020-12 it knows what the configuration schema uses: "$ref" to "$defs", "type", "enum",
 * "const", "anyOf" of numbers, "minimum", "maximum", "pattern", "required", "properties",
 * "additionalProperties": false, "items", "minItems" and "maxItems"; and that "if" an object has one
 * "required" member, "then" others, whose schemas are false, are refused with the "description" given there.
 */
#ifndef VANTOR_SCHEMA_CHECK_H
#define VANTOR_SCHEMA_CHECK_H

#include <vector>

#include <nlohmann/json.hpp>

#include "configuration/check/configuration_fault.h"

namespace vantor
{

/**
 * Checks a document against a schema.
 *
 * @param document  the document
 * @param schema    the schema, with the members above only
 * @return all faults, in the order of the document
 */
std::vector<configuration_fault> check_schema(const nlohmann::json &document, const nlohmann::json &schema);

} // namespace vantor

#endif
