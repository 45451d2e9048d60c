/** @file
 * Records the frames of a hub on a separate thread.
 */
#include "vantor/recording_sink.h"

#include <algorithm>
#include <utility>

#include "recording/gap_watch.h"

namespace vantor
{
namespace
{

/** How long frames may wait for the disk after they were written. */
constexpr std::chrono::milliseconds sync_interval{500};

/** How long frames may wait for others that are written together with them. */
constexpr std::chrono::milliseconds gathering_interval{2};

/** Bytes of frames in the queue that are written without waiting for others. */
constexpr size_t block_size = 256U << 10U;

/** Bytes that a frame occupies beside its samples and items: itself, its place in the queue, and what the
 * heap needs for each of its parts. */
constexpr size_t frame_overhead = sizeof(frame) + 256;

/** What a break counts in the queue, in bytes: the documents are written then, which takes as long as many
 * frames. */
constexpr size_t break_size = 4U << 20U;

/** Bytes of what simulated sensors should have found, if that is known. */
size_t truth_size(const frame &queued) noexcept
{
    size_t size = 0;
    if (const auto &known = queued.truth())
    {
        for (const auto &item : known->items)
        {
            size += sizeof(item) + (item ? item->targets.size() * sizeof(target_truth) : 0);
        }
    }
    return size;
}

} // namespace

size_t queued_size(const frame &queued) noexcept
{
    return queued.samples().size_bytes() + queued.items().size_bytes() + truth_size(queued) + frame_overhead;
}

recording_sink::recording_sink(recording_writer &writer, const session_metadata &metadata, size_t queue_size,
                               event_loop &loop, calendar now)
    : writer_(writer), gaps_(std::make_unique<gap_watch>()), queue_size_(queue_size),
      enough_(std::min(queue_size, block_size)), loop_(loop), now_(std::move(now))
{
    for (const auto &layout : metadata.items)
    {
        statistics_.emplace_back(layout);
    }
    thread_ = std::thread([this] { work(); });
}

recording_sink::~recording_sink()
{
    close();
}

bool recording_sink::ready() const
{
    const std::lock_guard lock(mutex_);
    hub_waits_ = !failure_ && queued_bytes_ > 0 && queued_bytes_ >= queue_size_;
    return !hub_waits_;
}

void recording_sink::check()
{
    const std::lock_guard lock(mutex_);
    if (failure_)
    {
        std::rethrow_exception(failure_);
    }
}

void recording_sink::begin(const segment &next)
{
    push({.next = std::make_shared<const segment>(next), .what = nullptr});
}

void recording_sink::add(const std::shared_ptr<const frame> &received)
{
    push({.next = nullptr, .what = received, .arrival = now_()});
}

written_amount recording_sink::written() const
{
    const std::lock_guard lock(mutex_);
    return written_;
}

std::exception_ptr recording_sink::close()
{
    {
        const std::lock_guard lock(mutex_);
        closing_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable())
    {
        thread_.join();
    }
    return failure_;
}

/** What a job counts in the queue, in bytes. */
size_t recording_sink::size_of(const job &queued)
{
    return (queued.what ? queued_size(*queued.what) : 0) + (queued.next ? break_size : 0);
}

/** Adds a job to the queue; throws the failure of an earlier one. */
void recording_sink::push(job &&added)
{
    bool wake_thread = false;
    {
        const std::lock_guard lock(mutex_);
        if (failure_)
        {
            std::rethrow_exception(failure_);
        }
        const bool had_enough = has_enough();
        wake_thread = queue_.empty();
        queued_bytes_ += size_of(added);
        queue_.push_back(std::move(added));
        wake_thread = wake_thread || (has_enough() && !had_enough);
    }
    if (wake_thread)
    {
        wake_.notify_one();
    }
}

/** The thread: executes jobs until the sink is closed, or one has failed. */
void recording_sink::work()
{
    bool more = true;
    while (more)
    {
        block next;
        more = take_block(next);
        std::exception_ptr failure;
        try
        {
            execute(next.jobs);
            sync_if_due(!more);
        }
        catch (...)
        {
            failure = std::current_exception();
            more = false;
        }
        next.jobs.clear();
        finish_block(next.size, std::move(failure));
    }
}

/**
 * Waits for jobs, or until data must be on the disk, and takes the jobs that wait, up to a block; false at
 * the end. Soon after a block it first waits for several jobs: waking the thread takes longer than writing a
 * short frame.
 */
bool recording_sink::take_block(block &taken)
{
    std::unique_lock lock(mutex_);
    const auto is_awake = [this] { return closing_ || !queue_.empty(); };
    if (sync_due_)
    {
        wake_.wait_until(lock, *sync_due_, is_awake);
    }
    else
    {
        wake_.wait(lock, is_awake);
    }
    wake_.wait_until(lock, gathered_at_, [this] { return closing_ || queue_.empty() || has_enough(); });
    const bool more = !closing_ || !queue_.empty();
    while (!queue_.empty() && taken.size < block_size)
    {
        taken.size += size_of(queue_.front());
        taken.jobs.push_back(std::move(queue_.front()));
        queue_.pop_front();
    }
    return more;
}

/** Waits for the disk if that is due, or at the end. */
void recording_sink::sync_if_due(bool last)
{
    if (sync_due_ && (last || std::chrono::steady_clock::now() >= *sync_due_))
    {
        writer_.sync();
        sync_due_.reset();
    }
}

/** Frees the space of executed jobs, and wakes the hub if it waits for space. */
void recording_sink::finish_block(size_t size, std::exception_ptr failure)
{
    gathered_at_ = std::chrono::steady_clock::now() + gathering_interval;
    bool wake_hub = false;
    {
        const std::lock_guard lock(mutex_);
        queued_bytes_ -= size;
        written_ = {.frames = writer_.frames(), .missing = writer_.missing(), .bytes = writer_.data_length()};
        failure_ = std::move(failure);
        wake_hub = std::exchange(hub_waits_, false);
    }
    if (wake_hub)
    {
        loop_.post([] {});
    }
}

/** Writes frames and begins segments, in the order of the jobs. */
void recording_sink::execute(const std::vector<job> &jobs)
{
    std::vector<arrived_frame> frames;
    for (const auto &taken : jobs)
    {
        if (taken.next)
        {
            write(frames);
            frames.clear();
            writer_.begin_segment(*taken.next);
            break_pending_ = true;
        }
        if (taken.what)
        {
            frames.push_back({.what = taken.what.get(), .arrival = taken.arrival});
        }
    }
    write(frames);
}

/** Writes frames of a segment, and adds those that could be written to the statistics. */
void recording_sink::write(std::span<const arrived_frame> frames)
{
    const auto before = writer_.frames();
    std::exception_ptr failure;
    try
    {
        writer_.add(frames);
    }
    catch (...)
    {
        failure = std::current_exception();
    }
    for (const auto &written : frames.first(writer_.frames() - before))
    {
        measure(*written.what);
    }
    if (failure)
    {
        std::rethrow_exception(failure);
    }
    if (!sync_due_ && !frames.empty())
    {
        sync_due_ = std::chrono::steady_clock::now() + sync_interval;
    }
}

/** Adds a frame to the statistics of its items. */
void recording_sink::measure(const frame &what)
{
    const bool after_gap = gaps_->next(what.missing(), std::exchange(break_pending_, false));
    for (size_t i = 0; i < statistics_.size(); ++i)
    {
        const auto &item = what.items()[i];
        const bool valid = item.data_valid.value_or(true);
        if (after_gap || !valid)
        {
            statistics_[i].restart();
        }
        if (valid)
        {
            statistics_[i].add(item.samples);
        }
    }
}

} // namespace vantor
