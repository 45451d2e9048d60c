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

bool stall_t::is_too_long(int64_t now_us, int unsent)
{
    const bool has_taken = unsent < std::exchange(unsent_, unsent);
    if (has_taken || (unsent == 0 && !refused_))
    {
        since_us_ = now_us;
    }
    return limit_us_ > 0 && now_us - since_us_ >= limit_us_;
}

void stall_t::note_written(int unsent)
{
    unsent_ = unsent;
    refused_ = false;
}

void stall_t::note_refused()
{
    refused_ = true;
}

int64_t stall_t::next_check_us() const
{
    return limit_us_ > 0 ? limit_us_ / checks : -1;
}
