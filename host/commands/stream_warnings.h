/** @file
 * What a person should know about a stream while it is recorded.
 */
#ifndef VANTOR_STREAM_WARNINGS_H
#define VANTOR_STREAM_WARNINGS_H

#include <string>

#include "vantor/frame_tally.h"

namespace vantor
{

/**
 * The warnings of describe_warnings() in a few words for a progress line, such as ", 4 missing, 3 saturated".
 *
 * @param nominal_rate  frames per second that are due; 0 if unknown
 */
std::string short_warnings(const frame_tally &tally, double nominal_rate);

} // namespace vantor

#endif
