/** @file
 * The description of a session: what is needed to understand its frames.
 */
#ifndef VANTOR_SESSION_DESCRIPTION_H
#define VANTOR_SESSION_DESCRIPTION_H

#include <nlohmann/json.hpp>

#include "vantor/session.h"

namespace vantor
{

/** The description of a session, as it is in a recording. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct session_description
{
    nlohmann::json configuration;  /**< the configuration document */
    session_metadata metadata;     /**< the answer of the server to the configuration */
    server_info server;            /**< in a recording only versions, sensor and ticks_per_second */
    nlohmann::ordered_json source; /**< where it was recorded from, see describe_source(); null if unknown */
    /** Scene, seed, clock and sensors of a simulator whose truth is recorded; null if it is not. */
    nlohmann::json truth = nullptr;
};

/** Ticks between two frames that are due; 0 if unknown. */
double nominal_tick_period(const session_description &session);

} // namespace vantor

#endif
