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
        bool begins = false;       /**< it is the first one of its session that has arrived */
        uint64_t lost_batches = 0; /**< before it, in its session */
        uint64_t lost_frames = 0;  /**< in these */
    };

    /** Adds a batch that has arrived. */
    verdict add(const batch_header &arrived);

private:
    [[nodiscard]] bool has_ended(const std::string &session) const;
    void begin(const batch_header &arrived);

    std::string session_;          /**< the current one; empty before the first batch */
    std::deque<std::string> past_; /**< the ones before it, some of them */
    bool ended_ = true;            /**< its last batch has arrived */
    uint64_t next_number_ = 0;     /**< of the batch that is expected */
    uint64_t next_first_ = 0;      /**< frames of the session before it */
};

} // namespace vantor

#endif
