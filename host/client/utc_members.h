/** @file
 * The time in UTC of an item in a frame header: the members "utc_s" and "utc_bound_s".
 */
#ifndef VANTOR_UTC_MEMBERS_H
#define VANTOR_UTC_MEMBERS_H

#include <chrono>
#include <optional>

#include <nlohmann/json.hpp>

#include "vantor/utc_time.h"

namespace vantor
{

/** Sets the moment to the value of "utc_s", to the microsecond; returns false if that is out of range. */
bool set_moment(utc_time &utc, double seconds);

/** Sets the bound to the value of "utc_bound_s", to the microsecond; returns false if that is out of range.
 */
bool set_bound(utc_time &utc, double seconds);

/**
 * The time of an item; nothing if it has none.
 *
 * @throws protocol_error if a member is not a number or out of range, or there is only one of the two
 */
std::optional<utc_time> utc_members(const nlohmann::json &item);

/** Adds the time of an item in whole microseconds, and its bound, which includes what was cut off. */
void add_utc_members(nlohmann::ordered_json &item, const utc_time &utc);

} // namespace vantor

#endif
