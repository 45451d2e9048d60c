/** @file
 * Describes where a recording comes from.
 */
#ifndef VANTOR_RECORDING_SOURCE_H
#define VANTOR_RECORDING_SOURCE_H

#include <nlohmann/json.hpp>

#include "vantor/address.h"
#include "vantor/session.h"

namespace vantor
{

/**
 * Describes the origin of a recording: the address, what the board reports about itself, and for a private
 * simulated server its scene, seed and clock.
 *
 * @param where   the address of the server
 * @param server  what the server reports about itself
 */
nlohmann::ordered_json describe_source(const address &where, const server_info &server);

} // namespace vantor

#endif
