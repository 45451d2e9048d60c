/** @file
 * Prints the figures of a session.
 */
#ifndef VANTOR_PLAN_REPORT_H
#define VANTOR_PLAN_REPORT_H

#include <filesystem>
#include <iosfwd>
#include <optional>

#include <nlohmann/json.hpp>

#include "vantor/plan.h"

namespace vantor
{

/** Prints the figures of a session as tables; with the baud rate of its link, if there is one. */
void print_plan(std::ostream &out, const session_plan &session, std::optional<double> baudrate);

/** Prints a line for each value that is accepted, but probably not wanted. */
void print_doubts(std::ostream &out, const std::filesystem::path &file, const session_plan &session);

/** The figures of a session as JSON. */
nlohmann::ordered_json plan_json(const session_plan &session, std::optional<double> baudrate);

} // namespace vantor

#endif
