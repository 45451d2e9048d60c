/** @file
 * Recognises a host that accepts no data.
 */
#ifndef VANTOR_LINUX_STALL_H
#define VANTOR_LINUX_STALL_H

#include <cstdint>

/** What a host takes of the written data. It has stalled when it leaves data, and takes no byte for a time.
 */
class stall_t
{
public:
    /**
     * Begins with a new host.
     *
     * @param limit_us  how long the host may take no byte; 0 for any time
     */
    explicit stall_t(int64_t limit_us = 0) : limit_us_(limit_us)
    {
    }

    /**
     * Returns whether the host has stalled, and notes whether it has taken bytes since the last call. To be
     * called before each write, and while the system accepts none.
     *
     * @param unsent  measure of what the system has accepted, but the host has not; 0 when that is unknown
     */
    bool is_too_long(int64_t now_us, int unsent);

    /** Notes that the system has accepted data. */
    void note_written(int unsent);

    /** Notes that the system accepts no data. */
    void note_refused();

    /** Returns how long to wait before the next call of is_too_long; negative for no limit. */
    int64_t next_check_us() const;

private:
    int64_t limit_us_;
    int64_t since_us_ = 0;
    int unsent_ = 0;
    bool refused_ = false; /**< the system has accepted no data the last time */
};

#endif
