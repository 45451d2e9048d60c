/** @file
 * Describes a server as text and as JSON.
 */
#ifndef VANTOR_SERVER_DESCRIPTION_H
#define VANTOR_SERVER_DESCRIPTION_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/session.h"

namespace vantor
{

/** Joins sensor numbers: "1, 2", or "none". */
std::string join(const std::vector<unsigned> &numbers);

/** What a server reports about itself, as JSON. */
nlohmann::ordered_json to_json(const std::string &where, const server_info &info);

} // namespace vantor

#endif
