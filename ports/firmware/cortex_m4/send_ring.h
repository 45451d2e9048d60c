/** @file
 * Stores what the program sends to the host until the link's port has sent it.
 */
#ifndef VANTOR_SEND_RING_H
#define VANTOR_SEND_RING_H

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>

namespace cortex_m4
{

/**
 * Passes bytes from the program to an interrupt without a lock.
 *
 * @tparam capacity  in bytes; a power of two
 */
template <uint32_t capacity> class send_ring_t
{
public:
    static_assert(capacity > 1 && (capacity & (capacity - 1)) == 0, "counts wrap at a power of two");

    /**
     * Stores bytes, as many as there is room for. For the program only.
     *
     * @return the number of bytes
     */
    uint32_t store(const uint8_t *data, uint32_t size)
    {
        const uint32_t end = end_.load(std::memory_order_relaxed);
        const uint32_t count = std::min(size, capacity - unsent());
        const uint32_t before_wrap = std::min(count, capacity - end % capacity);
        std::memcpy(&bytes_[end % capacity], data, before_wrap);
        std::memcpy(bytes_, data + before_wrap, count - before_wrap);
        // The interrupt sees the bytes before their number.
        std::atomic_signal_fence(std::memory_order_release);
        end_.store(end + count, std::memory_order_relaxed);
        return count;
    }

    /** Takes the next byte; false when there is none. For the interrupt only. */
    bool take(uint8_t *byte)
    {
        const uint32_t begin = begin_.load(std::memory_order_relaxed);
        if (begin == end_.load(std::memory_order_relaxed))
        {
            return false;
        }
        *byte = bytes_[begin % capacity];
        begin_.store(begin + 1, std::memory_order_relaxed);
        return true;
    }

    /** Returns the number of bytes that were not taken yet. */
    uint32_t unsent() const
    {
        // Only the other side can change its count meanwhile, so that the number is at worst too pessimistic.
        return end_.load(std::memory_order_relaxed) - begin_.load(std::memory_order_relaxed);
    }

    /** Returns the number of bytes that were ever taken, which wraps at 32 bits. */
    uint32_t taken() const
    {
        return begin_.load(std::memory_order_relaxed);
    }

    /** Discards all bytes. To be called while the interrupt is disabled. */
    void discard()
    {
        begin_.store(end_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    }

private:
    // The program writes the bytes and end_; the interrupt writes begin_. Both counts use all 32 bits. Both
    // run on the same processor, so that only the compiler must keep the order.
    uint8_t bytes_[capacity] = {};
    std::atomic<uint32_t> begin_ = 0;
    std::atomic<uint32_t> end_ = 0;
};

} // namespace cortex_m4

#endif
