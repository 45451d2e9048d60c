/** @file
 * Memory for the samples of received frames.
 */
#ifndef VANTOR_SAMPLE_BUFFER_H
#define VANTOR_SAMPLE_BUFFER_H

#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "vantor/sample.h"

namespace vantor
{

/** Bytes without initial values. */
struct sample_memory
{
    std::unique_ptr<std::byte[]> bytes; // NOLINT(modernize-avoid-c-arrays): of a size known at run time
    size_t size = 0;
};

/**
 * Keeps the memory of frames that were destroyed, for the next frames of the same session: at most 64 blocks
 * and 4 MiB, or one larger block. Thread-safe.
 */
class sample_pool
{
public:
    /** Takes a block that was kept; an empty one if there is none. */
    sample_memory take();

    /** Keeps a block, or frees it if there are enough. */
    void keep(sample_memory memory) noexcept;

private:
    std::mutex mutex_;
    std::vector<sample_memory> kept_;
    size_t size_ = 0; /**< of all blocks, in bytes */
};

/**
 * The samples of a frame while it is received and afterwards. New memory is allocated as the bytes arrive, so
 * a size that is only announced allocates little.
 */
class sample_buffer
{
public:
    /**
     * @param size  of all samples, in bytes
     * @param pool  where the memory comes from and goes to; the buffer can outlive it
     */
    sample_buffer(size_t size, const std::shared_ptr<sample_pool> &pool);
    sample_buffer(const sample_buffer &) = delete;
    sample_buffer &operator=(const sample_buffer &) = delete;
    sample_buffer(sample_buffer &&other) noexcept;
    sample_buffer &operator=(sample_buffer &&other) noexcept;
    ~sample_buffer();

    /** Where the next bytes belong: all that are missing, or as many as there is memory for. */
    std::span<std::byte> rest();

    /** Counts bytes that were written to rest(). */
    void add(size_t count) noexcept
    {
        filled_ += count;
    }

    /** Number of bytes that are missing. */
    [[nodiscard]] size_t missing() const noexcept
    {
        return size_ - filled_;
    }

    /** The bytes received so far. */
    [[nodiscard]] std::span<const std::byte> bytes() const noexcept
    {
        return {memory_.bytes.get(), filled_};
    }

    /** The samples received so far. */
    [[nodiscard]] std::span<const sample> samples() const noexcept
    {
        return {reinterpret_cast<const sample *>(memory_.bytes.get()), filled_ / sizeof(sample)};
    }

private:
    sample_memory memory_;
    size_t size_ = 0;
    size_t filled_ = 0;
    std::weak_ptr<sample_pool> pool_;
};

} // namespace vantor

#endif
