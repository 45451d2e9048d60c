/** @file
 * Tests of the ring buffer between the receive interrupt and the program.
 */
#include "receive_ring.h"

#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace
{

using ring_t = cortex_m4::receive_ring_t<8>;

void take(ring_t &ring, std::string_view bytes)
{
    for (const char byte : bytes)
    {
        ring.store(static_cast<uint8_t>(byte));
    }
}

std::string read(ring_t &ring, size_t size = 100)
{
    std::string bytes(size, '#');
    bytes.resize(ring.read(bytes.data(), size));
    return bytes;
}

TEST(receive_ring, returns_bytes_in_order_also_after_wraps)
{
    ring_t ring;
    EXPECT_TRUE(ring.is_empty());
    for (int round = 0; round < 20; ++round)
    {
        take(ring, "a\xFF\nbc");
        EXPECT_FALSE(ring.is_empty());
        EXPECT_EQ(read(ring, 3), "a\xFF\n");
        EXPECT_EQ(read(ring), "bc");
        EXPECT_TRUE(ring.is_empty());
    }
}

TEST(receive_ring, marks_a_loss_with_one_zero_byte)
{
    ring_t ring;
    for (int round = 0; round < 20; ++round)
    {
        take(ring, "1234567");
        take(ring, "lost and lost");
        EXPECT_EQ(read(ring, 1), "1");
        take(ring, "lost: the last place is reserved for the mark");
        EXPECT_EQ(read(ring, 1), "2");
        take(ring, "x");
        EXPECT_EQ(read(ring), std::string("34567\0x", 7));
    }
}

TEST(receive_ring, marks_every_loss)
{
    ring_t ring;
    take(ring, "1234567lost");
    EXPECT_EQ(read(ring, 2), "12");
    take(ring, "8lost");
    EXPECT_EQ(read(ring), std::string("34567\0"
                                      "8\0",
                                      8));
}

TEST(receive_ring, copies_bytes_without_reading_them)
{
    ring_t ring;
    const auto peek = [&ring](uint32_t skipped, size_t size) {
        std::string bytes(size, '#');
        bytes.resize(ring.peek(skipped, bytes.data(), size));
        return bytes;
    };
    for (int round = 0; round < 20; ++round)
    {
        take(ring, "abcde");
        EXPECT_EQ(peek(0, 3), "abc");
        EXPECT_EQ(peek(3, 100), "de");
        EXPECT_EQ(peek(5, 100), "");
        EXPECT_EQ(peek(100, 100), "");
        EXPECT_EQ(read(ring), "abcde");
    }
}

TEST(receive_ring, discards_unread_bytes)
{
    ring_t ring;
    take(ring, "12345");
    ring.discard();
    EXPECT_TRUE(ring.is_empty());
    EXPECT_EQ(read(ring), "");
    take(ring, "6789");
    EXPECT_EQ(read(ring), "6789");
}

} // namespace
