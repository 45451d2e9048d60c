/** @file
 * Stores what a host sends while the program is busy.
 */
#ifndef VANTOR_RECEIVE_RING_H
#define VANTOR_RECEIVE_RING_H

#include <cstddef>
#include <cstdint>

namespace cortex_m4
{

/**
 * Passes bytes from an interrupt to the program without a lock.
 *
 * When there is no room, bytes are lost and replaced by one zero byte, which no command contains: the rest of
 * the line is refused and not executed.
 *
 * @tparam capacity  in bytes, including the mark of a loss; a power of two
 */
template <uint32_t capacity> class receive_ring_t
{
public:
    static_assert(capacity > 1 && (capacity & (capacity - 1)) == 0, "counts wrap at a power of two");

    /** Stores a byte that has arrived. For the interrupt only. */
    void store(uint8_t byte)
    {
        const uint32_t room = capacity - (end_ - begin_);
        if (room > 1)
        {
            put(byte);
            lost_ = false;
        }
        else if (!lost_)
        {
            // The last byte is reserved for this mark.
            put(0);
            lost_ = true;
        }
    }

    /** Returns whether there is nothing to read. */
    bool is_empty() const
    {
        return begin_ == end_;
    }

    /**
     * Reads bytes that have arrived.
     *
     * @return the number of bytes
     */
    size_t read(char *data, size_t size)
    {
        size_t count = 0;
        for (; count < size && !is_empty(); ++count)
        {
            data[count] = bytes_[begin_ % capacity];
            begin_ = begin_ + 1;
        }
        return count;
    }

    /**
     * Copies bytes that have arrived, without reading them.
     *
     * @param skipped  number of unread bytes to skip
     * @return the number of bytes
     */
    size_t peek(uint32_t skipped, char *data, size_t size) const
    {
        const uint32_t unread = end_ - begin_;
        size_t count = 0;
        for (; count < size && skipped + count < unread; ++count)
        {
            data[count] = bytes_[(begin_ + skipped + count) % capacity];
        }
        return count;
    }

    /** Discards all unread bytes. */
    void discard()
    {
        begin_ = end_;
    }

private:
    void put(uint8_t byte)
    {
        bytes_[end_ % capacity] = static_cast<char>(byte);
        end_ = end_ + 1;
    }

    // The interrupt writes the bytes, end_ and lost_; the program writes begin_. Both counts use all 32 bits.
    // Everything is volatile, so that a byte is read before its place becomes free.
    volatile char bytes_[capacity] = {};
    volatile uint32_t begin_ = 0;
    volatile uint32_t end_ = 0;
    volatile bool lost_ = false;
};

} // namespace cortex_m4

#endif
