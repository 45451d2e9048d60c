/** @file
 * Formats times in UTC.
 */
#ifndef VANTOR_UTC_TEXT_H
#define VANTOR_UTC_TEXT_H

#include <chrono>
#include <string>

namespace vantor
{

/** A time in UTC with milliseconds, as in RFC 3339; rounded down. */
std::string utc_text(std::chrono::sys_time<std::chrono::nanoseconds> time);

/** A time in UTC with microseconds, as in RFC 3339; rounded down. */
std::string exact_utc_text(std::chrono::sys_time<std::chrono::nanoseconds> time);

} // namespace vantor

#endif
