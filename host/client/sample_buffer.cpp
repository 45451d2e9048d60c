/** @file
 * Memory for the samples of received frames.
 */
#include "vantor/sample_buffer.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

namespace vantor
{
namespace
{

/** How many blocks a pool keeps, and of how many bytes together. */
constexpr size_t most_kept = 64;
constexpr size_t most_bytes_kept = size_t{1} << 22;

/** Size of a new block, unless fewer bytes are needed: nobody can have more reserved by announcing more. */
constexpr size_t first_block = size_t{1} << 20;

} // namespace

sample_memory sample_pool::take()
{
    const std::lock_guard lock(mutex_);
    if (kept_.empty())
    {
        return {};
    }
    auto memory = std::move(kept_.back());
    kept_.pop_back();
    size_ -= memory.size;
    return memory;
}

void sample_pool::keep(sample_memory memory) noexcept
try
{
    const std::lock_guard lock(mutex_);
    if (kept_.empty() || (kept_.size() < most_kept && size_ + memory.size <= most_bytes_kept))
    {
        const auto size = memory.size;
        kept_.push_back(std::move(memory));
        size_ += size;
    }
}
catch (const std::exception &) // NOLINT(bugprone-empty-catch): without memory for the list, it is freed
{
}

sample_buffer::sample_buffer(size_t size, const std::shared_ptr<sample_pool> &pool)
    : memory_(pool->take()), size_(size), pool_(pool)
{
}

sample_buffer::sample_buffer(sample_buffer &&other) noexcept
    : memory_{std::move(other.memory_.bytes), std::exchange(other.memory_.size, 0)},
      size_(std::exchange(other.size_, 0)), filled_(std::exchange(other.filled_, 0)),
      pool_(std::move(other.pool_))
{
}

sample_buffer &sample_buffer::operator=(sample_buffer &&other) noexcept
{
    std::swap(memory_, other.memory_);
    std::swap(size_, other.size_);
    std::swap(filled_, other.filled_);
    std::swap(pool_, other.pool_);
    return *this;
}

sample_buffer::~sample_buffer()
{
    if (memory_.bytes)
    {
        if (const auto pool = pool_.lock())
        {
            pool->keep(std::move(memory_));
        }
    }
}

std::span<std::byte> sample_buffer::rest()
{
    if (filled_ == memory_.size && filled_ < size_)
    {
        const auto more = std::min(size_, std::max(first_block, 2 * filled_));
        sample_memory larger{.bytes = std::make_unique_for_overwrite<std::byte[]>(more), .size = more};
        if (filled_ > 0)
        {
            std::memcpy(larger.bytes.get(), memory_.bytes.get(), filled_);
        }
        memory_ = std::move(larger);
    }
    return {memory_.bytes.get() + filled_, std::min(memory_.size, size_) - filled_};
}

} // namespace vantor
