/** @file
 * Moves batches through the spool to a broker.
 */
#ifndef VANTOR_PUBLISHER_H
#define VANTOR_PUBLISHER_H

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>

#include "bridge/broker.h"
#include "bridge/spool.h"
#include "vantor/event_loop.h"

namespace vantor
{

/**
 * Moves batches through the spool to a broker. The batches of a board are stored in their order: one is
 * published when the one before is stored. Those of different boards are published at the same time.
 */
class publisher
{
public:
    /** What was counted. */
    struct counts
    {
        uint64_t stored = 0;       /**< batches that the broker has stored */
        uint64_t stored_bytes = 0; /**< of these */
        uint64_t repeated = 0;     /**< how often a batch was to be published again */
        uint64_t damaged = 0;      /**< batches that could not be read from the spool */
        uint64_t refused = 0;      /**< batches that are lost because the spool was full */
        uint64_t unwritten = 0;    /**< batches that are lost because the spool could not be written */
        uint64_t too_large = 0;    /**< batches that the broker does not take, which are lost */
    };

    /**
     * Also takes the batches that a former program has left in the spool.
     *
     * @param store   the spool; must outlive this object, as must the broker and the loop
     * @param target  where batches go
     * @param loop    its clock is used
     * @param site    batches of other sites stay in the spool; empty for any site
     */
    publisher(spool &store, broker &target, const event_loop &loop, const std::string &site = {});

    /**
     * Adds a batch.
     *
     * @return false if the spool does not take it: the batch is lost
     */
    bool add(const std::string &board, std::string_view bytes);

    /** Publishes what can be published. To be called after add(), and several times per second. */
    void run();

    /** Number of batches that wait. */
    [[nodiscard]] uint64_t waiting() const noexcept
    {
        return waiting_;
    }

    /** Number of batches of a board that wait. */
    [[nodiscard]] uint64_t waiting(const std::string &board) const;

    [[nodiscard]] const counts &counted() const noexcept
    {
        return counts_;
    }

private:
    /** The batches of a board that wait. */
    struct queue
    {
        std::deque<spool::place> places;
        bool scheduled = false; /**< in ready_ or paused_, or its first batch is being published */
    };

    void schedule(const std::string &board, queue &of);
    void publish_ready();
    void end_pauses();
    void publish_next();
    void drop_first(const std::string &board, queue &of, uint64_t &count);
    void note_answer(const std::string &board, bool stored);
    void remove_first(queue &of);

    spool &spool_;
    broker &broker_;
    const event_loop &loop_;
    std::map<std::string, queue> queues_; /**< by board */
    std::deque<std::string> ready_;       /**< boards whose first batch can be published */
    uint64_t waiting_ = 0;
    uint64_t bytes_under_way_ = 0;
    std::deque<std::pair<event_loop::time_point, std::string>> paused_; /**< boards after a failure */
    counts counts_;
};

} // namespace vantor

#endif
