/** @file
 * The boards that a NATS server knows.
 */
#ifndef VANTOR_FLEET_H
#define VANTOR_FLEET_H

#include <string>
#include <vector>

#include "bridge/board_state.h"
#include "bridge/broker.h"
#include "bridge/broker_address.h"

namespace vantor
{

/** The boards that a broker knows. */
struct fleet
{
    std::vector<decoded_state> boards; /**< in the order of sites and boards */
    uint64_t unreadable = 0;           /**< states that are not valid */
};

/**
 * Reads the last states of all boards, by all bridges of a NATS server.
 *
 * @param where     the server
 * @param site      the only site to read; empty for all
 * @param security  what proves who is who
 * @throws broker_error if they cannot be read
 */
fleet read_fleet(const broker_address &where, const std::string &site, const broker_security &security);

} // namespace vantor

#endif
