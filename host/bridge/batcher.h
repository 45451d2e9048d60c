/** @file
 * Collects the frames of a board in batches.
 */
#ifndef VANTOR_BATCHER_H
#define VANTOR_BATCHER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "bridge/batch.h"
#include "vantor/event_loop.h"
#include "vantor/frame_sink.h"
#include "vantor/session_source.h"

namespace vantor
{

/** When a batch is complete. */
struct batch_limits
{
    size_t bytes = size_t{256} << 10U;    /**< of its messages; a single frame can be larger */
    std::chrono::milliseconds time{100};  /**< from the arrival of its first frame */
    std::chrono::seconds description{10}; /**< how often the content of the session is repeated */
};

/** Collects the frames of one session of a board in batches. A segment of it is a session in the batches. */
class batcher : public frame_sink
{
public:
    /** Takes a complete batch, encoded. @param frames  in it */
    using batch_handler = std::function<void(std::string bytes, uint64_t frames)>;

    /**
     * @param site    name of the site
     * @param board   name of the board
     * @param server  what the server reported about itself
     * @param source  of the frames; must outlive this object
     * @param limits  when a batch is complete
     * @param loop    its clock is used; must outlive this object
     * @param done    takes the batches
     */
    batcher(std::string site, std::string board, const server_info &server, const session_source &source,
            batch_limits limits, const event_loop &loop, batch_handler done);

    /** Completes the batch if its time is over. */
    void check() override;
    void begin(const segment &next) override;
    void add(const std::shared_ptr<const frame> &received) override;

    /** Has the next batch describe the session again, because this one was lost. */
    void describe_again() noexcept
    {
        described_ = {};
    }

    /** Completes the last batch of the session. @param reason  why it has ended */
    void end(const std::string &reason);

private:
    void begin_session();
    void complete();

    const session_source &source_;
    batch_limits limits_;
    const event_loop &loop_;
    batch_handler done_;
    nlohmann::ordered_json server_;
    batch_header next_; /**< of the batch that is being collected */
    std::string messages_;
    uint64_t missing_before_ = 0;      /**< in earlier sessions */
    event_loop::time_point begun_;     /**< when the first frame of the batch arrived */
    event_loop::time_point described_; /**< when a batch last had the content of the session */
};

} // namespace vantor

#endif
