/** @file
 * Numbers of frames with a flag.
 */
#ifndef VANTOR_FLAG_COUNTS_H
#define VANTOR_FLAG_COUNTS_H

#include <cstdint>

namespace vantor
{

/** Numbers of frames with a flag, of one item. */
struct flag_counts
{
    uint64_t saturated = 0;
    uint64_t invalid = 0; /**< the channel was busy, or the transmitter off */
    uint64_t delayed = 0;
    uint64_t calibration_needed = 0;
};

} // namespace vantor

#endif
