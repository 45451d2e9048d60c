/** @file
 * The figures of a session that a server has reported.
 */
#ifndef VANTOR_REPORTED_PLAN_H
#define VANTOR_REPORTED_PLAN_H

#include "vantor/plan.h"
#include "vantor/session.h"

namespace vantor
{

/**
 * Replaces assumed figures of the sensors by those that a server has reported for the session.
 *
 * @param session   the plan of the session
 * @param metadata  the answer of the server to the same configuration
 */
void apply_metadata(session_plan &session, const session_metadata &metadata);

} // namespace vantor

#endif
