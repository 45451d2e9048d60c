/** @file
 * What the thread of a broker reports to the event loop.
 */
#ifndef VANTOR_BROKER_REPORTS_H
#define VANTOR_BROKER_REPORTS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bridge/broker.h"
#include "vantor/event_loop.h"

namespace vantor
{

/** What the thread of a broker reports to the event loop: answers to batches, and what is wrong. */
class broker_reports
{
public:
    /** @param loop  runs what is called when a batch is answered; must outlive this object */
    explicit broker_reports(event_loop &loop);
    broker_reports(const broker_reports &) = delete;
    broker_reports &operator=(const broker_reports &) = delete;
    broker_reports(broker_reports &&) = delete;
    broker_reports &operator=(broker_reports &&) = delete;
    /** Afterwards, nothing is called any more. */
    ~broker_reports();

    /**
     * Adds a batch whose answer is to come. To be called on the thread of the loop.
     *
     * @param done  called once, with what answer() is told
     * @return a token for the batch
     */
    uint64_t expect(std::function<void(bool stored)> done);

    /**
     * Completes batches that were not answered in time as not stored. To be called on the thread of the loop.
     *
     * @return their tokens
     */
    std::vector<uint64_t> give_up(std::chrono::steady_clock::duration time);

    /** Passes the answer to a batch on, from any thread. */
    void answer(uint64_t token, bool stored);

    /** Notes why batches cannot be published; empty if they can. */
    void note_fault(std::string fault);

    /** Notes why a batch was refused. */
    void note_refusal(std::string refusal);

    /** Why batches cannot be published, or why one was refused not long ago; empty if all is well. */
    [[nodiscard]] std::string fault() const;

private:
    using clock = std::chrono::steady_clock;

    /** A batch whose answer is to come. */
    struct pending
    {
        std::function<void(bool)> done;
        clock::time_point since;
    };

    /** An answer to a batch. */
    struct batch_answer
    {
        uint64_t token = 0;
        bool stored = false;
    };

    void take_answers();
    void complete(uint64_t token, bool stored);

    event_loop &loop_;
    // Of the loop.
    std::map<uint64_t, pending> pending_; /**< by token */
    uint64_t last_token_ = 0;
    // Of all threads.
    mutable std::mutex mutex_;
    std::vector<batch_answer> answers_;
    std::string fault_ = broker::not_tried;
    std::string refusal_; /**< why a batch was refused last */
    clock::time_point refused_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true); /**< false when this object is destroyed */
};

} // namespace vantor

#endif
