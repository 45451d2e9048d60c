/** @file
 * The figures of a session, as rows of a table.
 */
#ifndef VANTOR_PLAN_FIGURES_H
#define VANTOR_PLAN_FIGURES_H

#include <nlohmann/json.hpp>

#include "vantor/plan.h"

namespace vantor
{

/** The figures of a session: an array of pairs of a name and a text with the unit. */
nlohmann::ordered_json plan_figures(const session_plan &session);

} // namespace vantor

#endif
