/** @file
 * Checks a document against a JSON Schema.
 *
 * It supports the part of JSON Schema 2020-12 that the configuration schema uses: "$ref" to "$defs", "type",
 * "enum", "const", "anyOf" of numbers, "minimum", "maximum", "pattern", "required", "properties",
 * "additionalProperties": false, "items", "minItems" and "maxItems"; and "if" with one "required" member,
 * "then" with "properties" whose schemas are false: these members are rejected with its "description".
 */
#ifndef VANTOR_SCHEMA_CHECK_H
#define VANTOR_SCHEMA_CHECK_H

#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/configuration_fault.h"

namespace vantor
{

/**
 * Checks a document against a schema.
 *
 * @param document  the document
 * @param schema    the schema, which may use only the keywords above
 * @param found     where faults are added, in the order of the document
 */
void check_schema(const nlohmann::json &document, const nlohmann::json &schema, fault_list &found);

} // namespace vantor

#endif
