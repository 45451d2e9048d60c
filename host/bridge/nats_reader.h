/** @file
 * Reads the batches of a board from a NATS server.
 */
#ifndef VANTOR_NATS_READER_H
#define VANTOR_NATS_READER_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "bridge/broker.h"
#include "bridge/broker_address.h"
#include "bridge/nats_connection.h"
#include "bridge/nats_names.h"
#include "vantor/event_loop.h"

namespace vantor
{

/** A batch as it was stored. */
struct stored_batch
{
    std::string bytes;
    bool is_old = false; /**< stored before the reader has begun */
    double utc_s =
        0.0; /**< when it was stored, in seconds since 1970-01-01 UTC, by the clock of the broker */
};

/**
 * Reads the batches of a board from the stream of a NATS server, on a thread of its own. If the connection is
 * lost, it connects again and goes on where it was. Few batches wait to be taken: the others stay at the
 * server.
 */
class nats_reader
{
public:
    /**
     * @param where     the board. The first batches are some from before its time, or from before the
     *                  last one: they describe the session.
     * @param security  what proves who is who
     * @param loop      runs @p arrived; must outlive this object
     * @param arrived   called when a batch can be taken, or reading failed for the first time
     * @throws broker_error if a file of @p security cannot be read
     */
    nats_reader(remote_board_address where, const broker_security &security, event_loop &loop,
                std::function<void()> arrived);
    nats_reader(const nats_reader &) = delete;
    nats_reader &operator=(const nats_reader &) = delete;
    nats_reader(nats_reader &&) = delete;
    nats_reader &operator=(nats_reader &&) = delete;
    ~nats_reader();

    /** Takes the next batch; nothing if none has arrived. */
    std::optional<stored_batch> take();

    /** Why no batch can be read; empty if all is well. */
    [[nodiscard]] std::string fault() const;

private:
    /** What a stream has. */
    struct stream_state
    {
        uint64_t messages = 0;
        uint64_t last = 0;   /**< the number of the last one */
        int64_t created = 0; /**< when the stream was created, in nanoseconds since 1970 */
    };

    void work();
    void read_stream();
    void find_begin(jsCtx &streams, const stream_state &stream);
    [[nodiscard]] stream_state state_of(jsCtx &streams) const;
    [[noreturn]] void refuse_board() const;
    nats_subscription subscribe(jsCtx &streams) const;
    bool read_next(natsSubscription &subscription);
    void add(natsMsg &received);
    void wake();
    [[nodiscard]] bool stopping() const;

    remote_board_address where_;
    nats_names names_;
    event_loop &loop_;
    std::function<void()> arrived_;
    // Of the thread.
    nats_dialer dialer_;
    int64_t begin_time_ = 0; /**< of the first message to read, in nanoseconds since 1970 */
    int64_t created_ = 0;    /**< when the stream that is read was created */
    uint64_t last_old_ = 0;  /**< the last message before this reader has begun */
    uint64_t last_read_ = 0; /**< the message that was read last */
    int64_t last_time_ = 0;  /**< when that was stored, in nanoseconds since 1970 */
    // Of both.
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<stored_batch> batches_;
    size_t bytes_ = 0; /**< of these */
    std::string fault_;
    bool stop_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true); /**< false when this object is destroyed */
    std::thread thread_;
};

} // namespace vantor

#endif
