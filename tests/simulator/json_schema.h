/** @file
 * Checks documents against a JSON Schema, for tests.
 */
#ifndef JSON_SCHEMA_H
#define JSON_SCHEMA_H

#include <nlohmann/json.hpp>

/**
 * Returns whether a document is valid according to a schema. Throws std::logic_error if the schema uses a
 * keyword that is not checked here.
 *
 * @param schema  a part of @p root
 * @param root    the schema with the "$defs"
 */
bool fits_schema(const nlohmann::ordered_json &document, const nlohmann::ordered_json &schema,
                 const nlohmann::ordered_json &root);

#endif
