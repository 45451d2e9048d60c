/** @file
 * Tests of the ring buffer between the program and the send interrupt.
 */
#include "send_ring.h"

#include <csignal>
#include <functional>
#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <ucontext.h>

namespace
{

constexpr uint32_t capacity = 8;
using ring_t = cortex_m4::send_ring_t<capacity>;

/** Stores a text; returns the number of bytes. */
uint32_t store(ring_t &ring, std::string_view text)
{
    return ring.store(reinterpret_cast<const uint8_t *>(text.data()), static_cast<uint32_t>(text.size()));
}

/** Takes bytes, as many as there are. */
std::string take(ring_t &ring, uint32_t most = UINT32_MAX)
{
    std::string taken;
    uint8_t byte = 0;
    while (taken.size() < most && ring.take(&byte))
    {
        taken += static_cast<char>(byte);
    }
    return taken;
}

/** Moves the place of the next byte. */
void advance(ring_t &ring, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i)
    {
        ASSERT_EQ(store(ring, "-"), 1U);
        ASSERT_EQ(take(ring), "-");
    }
}

/** Text of a size in which every byte is different. */
std::string text_of(uint32_t size, char first = 'a')
{
    std::string text;
    for (uint32_t i = 0; i < size; ++i)
    {
        text += static_cast<char>(first + static_cast<char>(i));
    }
    return text;
}

TEST(send_ring, passes_every_size_at_every_place)
{
    for (uint32_t place = 0; place < capacity; ++place)
    {
        for (uint32_t size = 0; size <= 2 * capacity; ++size)
        {
            ring_t ring;
            advance(ring, place);
            const uint32_t fitting = std::min(size, capacity);
            EXPECT_EQ(store(ring, text_of(size)), fitting);
            EXPECT_EQ(ring.unsent(), fitting);
            EXPECT_EQ(take(ring), text_of(fitting));
            EXPECT_EQ(ring.unsent(), 0U);
            EXPECT_EQ(ring.taken(), place + fitting);
        }
    }
}

TEST(send_ring, stores_what_there_is_room_for)
{
    for (uint32_t place = 0; place < capacity; ++place)
    {
        ring_t ring;
        advance(ring, place);
        EXPECT_EQ(store(ring, "abcdef"), 6U);
        EXPECT_EQ(store(ring, "ghij"), 2U);
        EXPECT_EQ(store(ring, "full"), 0U);
        EXPECT_EQ(take(ring, 3), "abc");
        EXPECT_EQ(store(ring, "ijkl"), 3U);
        EXPECT_EQ(take(ring), "defghijk");
        EXPECT_EQ(take(ring), "");
    }
}

TEST(send_ring, discards_everything)
{
    ring_t ring;
    EXPECT_EQ(store(ring, "abcde"), 5U);
    ring.discard();
    EXPECT_EQ(ring.unsent(), 0U);
    EXPECT_EQ(store(ring, "12345678"), capacity);
    EXPECT_EQ(take(ring), "12345678");
}

#ifdef __x86_64__

/** Single-steps a function with the processor's trap flag. */
struct stepper
{
    std::function<void()> interrupt;
    uint32_t steps_left = 0;
    bool is_finished = false;
};

stepper running;

extern "C" void on_trap(int /*signal*/, siginfo_t * /*info*/, void *context)
{
    constexpr greg_t trap_flag = 0x100;
    greg_t &flags = static_cast<ucontext_t *>(context)->uc_mcontext.gregs[REG_EFL];
    if (running.is_finished || running.steps_left == 0)
    {
        flags &= ~trap_flag;
        if (!running.is_finished)
        {
            running.interrupt();
        }
        return;
    }
    --running.steps_left;
    flags |= trap_flag;
}

/** Runs a program and interrupts it after a number of instructions; false if it ended before. */
template <typename program_t>
bool is_interrupted(const program_t &program, uint32_t steps, std::function<void()> interrupt)
{
    running = {std::move(interrupt), steps, false};
    __asm volatile("int3" ::: "memory");
    program();
    const bool was_interrupted = running.steps_left == 0;
    running.is_finished = true;
    __asm volatile("" ::: "memory");
    return was_interrupted;
}

struct send_ring_interrupted : testing::Test
{
    send_ring_interrupted()
    {
        struct sigaction action = {};
        action.sa_sigaction = on_trap;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGTRAP, &action, &previous);
    }
    ~send_ring_interrupted() override
    {
        sigaction(SIGTRAP, &previous, nullptr);
    }

    struct sigaction previous = {};
};

/** A ring at a place, with some bytes, and how many more are stored and taken. */
struct situation
{
    uint32_t place;
    uint32_t waiting;
    uint32_t stored;
    uint32_t taken;
};

/** Interrupts a store after a number of instructions; false if it ended before. */
bool is_store_interrupted(const situation &given, uint32_t steps)
{
    ring_t ring;
    advance(ring, given.place);
    const std::string all = text_of(given.waiting + given.stored);
    EXPECT_EQ(store(ring, std::string_view(all).substr(0, given.waiting)), given.waiting);
    const std::string_view more = std::string_view(all).substr(given.waiting);
    uint32_t stored = 0;
    std::string taken;
    const bool was_interrupted =
        is_interrupted([&] { stored = store(ring, more); }, steps, [&] { taken = take(ring, given.taken); });
    EXPECT_GE(stored, std::min(given.stored, capacity - given.waiting));
    EXPECT_LE(taken.size(), given.taken);
    EXPECT_EQ(ring.unsent(), given.waiting + stored - taken.size());
    EXPECT_EQ(taken + take(ring), all.substr(0, given.waiting + stored));
    return was_interrupted;
}

TEST_F(send_ring_interrupted, passes_every_byte_wherever_a_store_is_interrupted)
{
    for (const uint32_t place : {0U, 7U})
    {
        for (const uint32_t waiting : {0U, 5U})
        {
            for (const uint32_t stored : {1U, 8U})
            {
                for (const uint32_t taken : {1U, 8U})
                {
                    uint32_t steps = 0;
                    while (is_store_interrupted({place, waiting, stored, taken}, steps))
                    {
                        ++steps;
                    }
                    EXPECT_GT(steps, 10U);
                    ASSERT_FALSE(HasFailure()) << place << ' ' << waiting << ' ' << stored << ' ' << steps;
                }
            }
        }
    }
}

#endif

} // namespace
