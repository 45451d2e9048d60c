/** @file
 * Recognises a host that accepts no data.
 */
#include "stall.h"

#include <utility>

namespace
{

/** Number of checks within the limit. */
constexpr int64_t checks = 10;

} // namespace

stall_t::stall_t(int64_t limit_us, int64_t now_us, int unsent)
    : limit_us_(limit_us), since_us_(now_us), unsent_(unsent)
{
}

bool stall_t::is_too_long(int64_t now_us, int unsent)
{
    if (unsent < std::exchange(unsent_, unsent))
    {
        since_us_ = now_us;
    }
    return limit_us_ > 0 && now_us - since_us_ >= limit_us_;
}

int64_t stall_t::next_check_us() const
{
    return limit_us_ > 0 ? limit_us_ / checks : -1;
}
