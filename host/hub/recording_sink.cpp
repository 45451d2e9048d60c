/** @file
 * Records the frames of a hub on a thread of its own.
 */
#include "hub/recording_sink.h"

#include <utility>

namespace vantor
{
namespace
{

/** The bytes that a frame occupies in the queue. */
size_t size_of(const std::shared_ptr<const frame> &queued)
{
    return queued ? queued->samples().size_bytes() : 0;
}

} // namespace

recording_sink::recording_sink(recording_writer &writer, const session_metadata &metadata, size_t queue_size,
                               event_loop &loop)
    : writer_(writer), queue_size_(queue_size), loop_(loop)
{
    for (const auto &layout : metadata.items)
    {
        statistics_.emplace_back(layout.sweep_length);
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

void recording_sink::begin(const segment &next)
{
    push({.next = next, .what = nullptr});
}

void recording_sink::add(const std::shared_ptr<const frame> &received)
{
    push({.next = {}, .what = received});
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

/** Adds a job to the queue; throws the failure of an earlier one. */
void recording_sink::push(job &&added)
{
    {
        const std::lock_guard lock(mutex_);
        if (failure_)
        {
            std::rethrow_exception(failure_);
        }
        queued_bytes_ += size_of(added.what);
        queue_.push_back(std::move(added));
    }
    wake_.notify_one();
}

/** The thread: executes jobs until the sink is closed, or one has failed. */
void recording_sink::work()
{
    job next;
    while (take_job(next))
    {
        std::exception_ptr failure;
        try
        {
            execute(next);
        }
        catch (...)
        {
            failure = std::current_exception();
        }
        finish_job(next, std::move(failure));
        next = {};
    }
}

/** Waits for the next job; false if there is none any more. */
bool recording_sink::take_job(job &taken)
{
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return closing_ || !queue_.empty(); });
    if (queue_.empty() || failure_)
    {
        return false;
    }
    taken = std::move(queue_.front());
    queue_.pop_front();
    return true;
}

/** Frees the space of a job, and wakes the hub if it waits for space. */
void recording_sink::finish_job(const job &finished, std::exception_ptr failure)
{
    bool wake_hub = false;
    {
        const std::lock_guard lock(mutex_);
        queued_bytes_ -= size_of(finished.what);
        failure_ = std::move(failure);
        wake_hub = std::exchange(hub_waits_, false);
    }
    if (wake_hub)
    {
        loop_.post([] {});
    }
}

/** Writes a frame, or begins a segment. */
void recording_sink::execute(const job &taken)
{
    if (!taken.what)
    {
        writer_.begin_segment(taken.next);
        return;
    }
    writer_.add(*taken.what);
    for (size_t i = 0; i < statistics_.size(); ++i)
    {
        const auto &item = taken.what->items()[i];
        if (item.data_valid.value_or(true))
        {
            statistics_[i].add(item.samples);
        }
    }
}

} // namespace vantor
