/** @file
 * Follows the batches of a board: finds out what is missing and what came twice.
 */
#ifndef VANTOR_BATCH_ORDER_H
#define VANTOR_BATCH_ORDER_H

#include <cstdint>
#include <deque>
#include <string>

#include "bridge/batch.h"

namespace vantor
{

/** Follows the batches of a board, which arrive in their order. */
class batch_order
{
public:
    /** What a batch is, compared with those before it. */
    struct verdict
    {
        bool repeated = false;     /**< it was there before: to be dropped */
        bool unfinished = false;   /**< the session before it has not ended, as far as batches show */
        bool begins = false;       /**< those before it are of another session */
        bool goes_on = false;      /**< its session began before the one of those before it */
        uint64_t lost_batches = 0; /**< before it, in its session */
        uint64_t lost_frames = 0;  /**< in these */
    };

    /** Adds a batch that has arrived. */
    verdict add(const batch_header &arrived);

private:
    /** How far a session has arrived. */
    struct progress
    {
        std::string session;      /**< empty before the first batch of all */
        bool ended = true;        /**< its last batch has arrived */
        uint64_t next_number = 0; /**< of the batch that is expected */
        uint64_t next_first = 0;  /**< frames of the session before that */
    };

    void change_session(const batch_header &arrived, verdict &found);

    progress current_;
    std::deque<progress> past_; /**< the sessions before, some of them */
};

} // namespace vantor

#endif
