/** @file
 * What a server says of itself, for people and for programs.
 */
#ifndef VANTOR_SERVER_DESCRIPTION_H
#define VANTOR_SERVER_DESCRIPTION_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/session.h"

namespace vantor
{

/** Joins sensor numbers: "1, 2"; "none" when there are none. */
std::string join(const std::vector<unsigned> &numbers);

/** What a server says of itself, as JSON. */
nlohmann::ordered_json to_json(const std::string &where, const server_info &info);

} // namespace vantor

#endif
