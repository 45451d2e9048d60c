/** @file
 * Recognises a host that accepts no data.
 */
#ifndef VANTOR_LINUX_STALL_H
#define VANTOR_LINUX_STALL_H

#include <cstdint>

/** A wait for a host that accepts no data. It is too long when the host has not taken a byte for a time. */
class stall_t
{
public:
    /**
     * Begins the wait.
     *
     * @param limit_us  how long the host may take no byte; 0 for any time
     * @param now_us    the time
     * @param unsent    bytes that the system has accepted, but the host has not; 0 when that is unknown
     */
    stall_t(int64_t limit_us, int64_t now_us, int unsent);

    /** Returns whether the wait is too long, and notes whether the host has taken bytes since the last call.
     */
    bool is_too_long(int64_t now_us, int unsent);

    /** Returns how long to wait before the next call; negative for no limit. */
    int64_t next_check_us() const;

private:
    int64_t limit_us_;
    int64_t since_us_;
    int unsent_;
};

#endif
