/** @file
 * The link to the host.
 */
#include "link.h"

#include <algorithm>

#include "board.h"
#include "clock.h"
#include "interrupts.h"
#include "receive_ring.h"
#include "send_ring.h"

namespace
{

constexpr uint64_t stall_time_us = uint64_t{link_stall_limit_s} * 1000000;

/** Bits of a byte on the wire, including start and stop bit, times the microseconds in a second. */
constexpr uint32_t byte_time_us_baud = 10000000;

/** Longest pause between two looks at the output while the program waits for it. */
constexpr uint64_t pause_us = 1000;

/** Most polls of the port for one byte after a failure: more than a byte takes, less than a second. */
constexpr uint32_t most_polls = 1000000;

constinit cortex_m4::receive_ring_t<BOARD_RING_SIZE> ring;
constinit cortex_m4::send_ring_t<BOARD_SEND_RING_SIZE> send_ring;
uint32_t looked_at; /**< unread bytes that link_look_ahead has copied */
bool sends_by_interrupt;
bool stalled;
uint32_t last_taken;       /**< by the port when it was last seen to accept bytes */
uint64_t last_accepted_us; /**< when that was */
uint32_t current_baudrate;

/** Sends as many of the waiting bytes as the port accepts. For the interrupt only. */
void feed_port()
{
    uint8_t byte = 0;
    while (board_link_can_send() && send_ring.take(&byte))
    {
        board_link_send(byte);
    }
    (void)board_link_set_send_interrupt(send_ring.unsent() > 0);
}

/** Detects a port that accepts nothing. Called before bytes are added, and while they wait. */
void watch_port()
{
    const uint64_t now = clock_now_us();
    if (send_ring.unsent() == 0 || send_ring.taken() != last_taken)
    {
        last_taken = send_ring.taken();
        last_accepted_us = now;
    }
    stalled = stalled || now - last_accepted_us >= stall_time_us;
}

bool is_half_sent()
{
    return send_ring.unsent() <= BOARD_SEND_RING_SIZE / 2;
}

bool is_taken()
{
    return send_ring.unsent() == 0;
}

/** Waits until enough of the output has been sent, or the link has stalled. A port without interrupt is
 * polled. */
void wait_for_output(bool (*is_enough)())
{
    while (!is_enough() && !stalled)
    {
        (void)clock_wait_until(clock_now_us() + (sends_by_interrupt ? pause_us : 0), is_enough);
        raise_link_interrupt();
        watch_port();
    }
}

/** Waits until the last bit is sent; false when it takes too long. Polls, because a byte takes microseconds.
 */
bool wait_for_last_bit()
{
    const uint64_t deadline = clock_now_us() + stall_time_us;
    while (!board_link_is_drained())
    {
        board_feed_watchdog();
        if (clock_now_us() >= deadline)
        {
            return false;
        }
    }
    return true;
}

/** Opens the port, without an interrupt in the middle, and leaves the interrupts off. */
void open_at(uint32_t baudrate)
{
    disable_link_interrupts();
    current_baudrate = baudrate;
    board_link_open(baudrate);
}

} // namespace

void link_handler()
{
    uint8_t byte = 0;
    while (board_link_receive(&byte))
    {
        ring.store(byte);
    }
    feed_port();
    board_wake();
}

void link_open()
{
    open_at(BOARD_LINK_START_BAUDRATE);
    sends_by_interrupt = board_link_set_send_interrupt(false);
    send_ring.discard();
    link_discard_input();
    stalled = false;
    enable_link_interrupts();
}

void link_write(const void *data, uint32_t size)
{
    const auto *bytes = static_cast<const uint8_t *>(data);
    watch_port();
    for (uint32_t stored = 0; stored < size && !stalled;)
    {
        stored += send_ring.store(bytes + stored, size - stored);
        raise_link_interrupt();
        if (stored < size)
        {
            wait_for_output(is_half_sent);
        }
    }
    if (!sends_by_interrupt)
    {
        wait_for_output(is_taken);
    }
}

bool link_is_sending()
{
    return !is_taken();
}

bool link_is_stalled()
{
    watch_port();
    return stalled;
}

bool link_has_input()
{
    return !ring.is_empty();
}

size_t link_read(char *data, size_t size)
{
    const size_t count = ring.read(data, size);
    looked_at -= std::min(looked_at, static_cast<uint32_t>(count));
    return count;
}

size_t link_look_ahead(char *data, size_t size)
{
    const size_t count = ring.peek(looked_at, data, size);
    looked_at += static_cast<uint32_t>(count);
    return count;
}

void link_discard_input()
{
    ring.discard();
    looked_at = 0;
}

void link_send_rest()
{
    uint8_t byte = 0;
    bool has_sent = false;
    for (uint32_t polls = 0;
         polls < most_polls && (link_is_sending() || (has_sent && !board_link_is_drained())); ++polls)
    {
        board_feed_watchdog();
        if (board_link_can_send() && send_ring.take(&byte))
        {
            board_link_send(byte);
            has_sent = true;
            polls = 0;
        }
    }
}

// Some ports detect when a byte has left their buffer, but not when its last bit has been sent.
void link_drain()
{
    wait_for_output(is_taken);
    stalled = stalled || !wait_for_last_bit();
    clock_delay_us(byte_time_us_baud / current_baudrate + 1U);
}

void link_set_baudrate(uint32_t baudrate)
{
    link_drain();
    open_at(baudrate);
    enable_link_interrupts();
}
