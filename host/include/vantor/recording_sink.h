/** @file
 * Records the frames of a hub on a separate thread.
 */
#ifndef VANTOR_RECORDING_SINK_H
#define VANTOR_RECORDING_SINK_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "vantor/event_loop.h"
#include "vantor/frame_sink.h"
#include "vantor/item_statistics.h"
#include "vantor/recording_writer.h"

namespace vantor
{

class gap_watch;

/** What a recording_sink has written. */
struct written_amount
{
    uint64_t frames = 0;
    uint64_t missing = 0; /**< frames missing between those written */
    uint64_t bytes = 0;   /**< of samples, for all items */
};

/** Returns the present date and time; std::chrono::system_clock::now unless a test passes another clock. */
using calendar = std::function<std::chrono::system_clock::time_point()>;

/** Size of the queue of a recording_sink unless another one is given, in bytes. */
inline constexpr size_t default_queue_size = 64U << 20U;

/** The bytes that a frame occupies in the queue of a recording_sink, with everything that belongs to it. */
size_t queued_size(const frame &queued) noexcept;

/**
 * Records frames: loses none, and does not make the hub wait for the disk while its queue has space. A thread
 * writes the frames, computes the statistics of each item, and has everything on the disk within a second.
 */
class recording_sink : public frame_sink
{
public:
    /**
     * @param writer      the recording; used by the thread until close()
     * @param metadata    the metadata of the session
     * @param queue_size  bytes of frames that can wait for the disk; one frame can always wait
     * @param loop        the loop of the hub; must outlive the sink
     * @param now         shows when a frame arrives
     */
    recording_sink(recording_writer &writer, const session_metadata &metadata, size_t queue_size,
                   event_loop &loop, calendar now = std::chrono::system_clock::now);
    recording_sink(const recording_sink &) = delete;
    recording_sink &operator=(const recording_sink &) = delete;
    recording_sink(recording_sink &&) = delete;
    recording_sink &operator=(recording_sink &&) = delete;
    ~recording_sink() override;

    [[nodiscard]] bool ready() const override;
    void check() override;
    void begin(const segment &next) override;
    void add(const std::shared_ptr<const frame> &received) override;

    /**
     * Waits until every frame is written, and ends the thread.
     *
     * @return the failure that ended the recording early; null if there was none
     */
    std::exception_ptr close();

    /** What has been written so far: as of the block of frames that was finished last. Can be called from any
     * thread, as can the next three functions. */
    [[nodiscard]] written_amount written() const;

    /** Number of frames. */
    [[nodiscard]] uint64_t frames_written() const
    {
        return written().frames;
    }

    /** Number of frames missing, as the recording counts them. */
    [[nodiscard]] uint64_t missing_written() const
    {
        return written().missing;
    }

    /** Bytes of samples of all items. */
    [[nodiscard]] uint64_t bytes_written() const
    {
        return written().bytes;
    }

    /** Statistics of each item, without invalid frames. Only after close(). */
    [[nodiscard]] const std::vector<item_statistics> &statistics() const noexcept
    {
        return statistics_;
    }

private:
    /** What the thread does next: begin a segment, or write a frame. */
    struct job
    {
        std::shared_ptr<const segment> next;                /**< if not null */
        std::shared_ptr<const frame> what;                  /**< if not null */
        std::chrono::system_clock::time_point arrival = {}; /**< of the frame */
    };

    /** Jobs that are executed one after the other. */
    struct block
    {
        std::vector<job> jobs;
        size_t size = 0; /**< what they count in the queue, in bytes */
    };

    static size_t size_of(const job &queued);

    /** Whether so much is in the queue that the thread does not wait for more. */
    [[nodiscard]] bool has_enough() const noexcept
    {
        return queued_bytes_ >= enough_;
    }

    void work();
    bool take_block(block &taken);
    void execute(const std::vector<job> &jobs);
    void write(std::span<const arrived_frame> frames);
    void measure(const frame &what);
    void sync_if_due(bool last);
    void finish_block(size_t size, std::exception_ptr failure);
    void push(job &&added);

    recording_writer &writer_;
    std::vector<item_statistics> statistics_;
    std::unique_ptr<gap_watch> gaps_;
    bool break_pending_ = false; /**< a segment begins with the next frame */
    std::optional<std::chrono::steady_clock::time_point>
        sync_due_;                                           /**< for frames that may not be on the disk */
    std::chrono::steady_clock::time_point gathered_at_ = {}; /**< when frames need not wait for others */
    size_t queue_size_;
    size_t enough_;
    event_loop &loop_;
    calendar now_;
    mutable std::mutex mutex_; /**< for the members below, except the thread */
    std::condition_variable wake_;
    std::deque<job> queue_;
    size_t queued_bytes_ = 0;        /**< including the frames that are being written */
    mutable bool hub_waits_ = false; /**< for space in the queue */
    written_amount written_;
    bool closing_ = false;
    std::exception_ptr failure_;
    std::thread thread_;
};

} // namespace vantor

#endif
