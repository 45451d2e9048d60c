/** @file
 * The fake board.
 */
#include "fake_board.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "board.h"
#include "interrupts.h"
#include "zet_integration.h"
#include "zet_vantor_server.h"

fake_board_t board;

extern "C" {

// From the linker script.
extern uint8_t firmware_cleared_begin[];
extern uint8_t firmware_cleared_end[];
extern uint8_t firmware_retained_begin[];
extern uint8_t firmware_retained_end[];
}

namespace
{

/** Limit of the polls and waits in a test. The longest test needs about 6 million. */
constexpr uint64_t most_steps = 30000000;

bool can_send(const transmitter_t &port)
{
    board.advance_ns(board.poll_time_ns);
    return !port.is_blocked && board.now_ns >= port.buffer_free_ns;
}

void send(transmitter_t &port, uint8_t byte)
{
    port.buffer_free_ns = std::max(board.now_ns, port.idle_ns);
    port.idle_ns = port.buffer_free_ns + port.byte_time_ns;
    port.sent += static_cast<char>(byte);
}

void record_call(std::string what)
{
    board.calls.emplace_back(board.now_us(), std::move(what));
}

void record_switch(const char *what, uint32_t number, bool on)
{
    record_call(what + std::to_string(number) + (on ? " on" : " off"));
}

} // namespace

void reset_board()
{
    board = {};
    // Byte by byte, because a sanitizer reports a memset over the gaps between the variables.
    for (volatile uint8_t *byte = firmware_cleared_begin; byte != firmware_cleared_end; ++byte)
    {
        *byte = 0;
    }
}

std::span<uint8_t> retained_memory()
{
    return {firmware_retained_begin, firmware_retained_end};
}

void fake_board_t::run_due_events()
{
    while (!events.empty() && events.begin()->first <= now_ns)
    {
        events.extract(events.begin()).mapped()();
    }
}

/** Ends the test program when the firmware waits forever. The waiting code cannot handle an exception. */
void fake_board_t::count_step()
{
    if (++steps > most_steps)
    {
        std::fputs("The firmware waits forever.\n", stderr);
        std::abort();
    }
}

void fake_board_t::advance_ns(uint64_t duration_ns)
{
    count_step();
    const uint64_t end = now_ns + duration_ns;
    run_due_events();
    while (!events.empty() && events.begin()->first <= end)
    {
        now_ns = std::max(now_ns, events.begin()->first);
        run_due_events();
    }
    // A handler may have taken longer.
    now_ns = std::max(now_ns, end);
}

void fake_board_t::wait(uint32_t duration_us)
{
    count_step();
    waits.push_back(duration_us);
    const uint64_t end = now_ns + duration_us * uint64_t{1000};
    run_due_events();
    while (!is_woken && now_ns < end)
    {
        now_ns = events.empty() ? end : std::clamp(events.begin()->first, now_ns, end);
        run_due_events();
    }
    is_woken = false;
}

void fake_board_t::receive(std::string_view bytes)
{
    received.insert(received.end(), bytes.begin(), bytes.end());
    raise_link_interrupt();
}

void fake_board_t::signal(uint32_t sensors)
{
    sensor_lines |= sensors;
    if (sensor_interrupts_enabled)
    {
        sensor_handler();
    }
}

void fake_board_t::unblock_link()
{
    link.is_blocked = false;
    finish_link_byte();
}

void fake_board_t::finish_link_byte()
{
    if (link_send_interrupt == send_interrupt_t::edge || wants_link_bytes())
    {
        raise_link_interrupt();
    }
}

bool fake_board_t::wants_link_bytes() const
{
    return link_send_interrupt == send_interrupt_t::level && link_send_interrupt_on && !link.is_blocked &&
           now_ns >= link.buffer_free_ns;
}

void fake_board_t::raise_link_interrupt()
{
    link_interrupt_pending = true;
    if (handles_link_interrupt)
    {
        return;
    }
    handles_link_interrupt = true;
    while (link_interrupts_enabled && link_interrupt_pending)
    {
        count_step();
        ++link_interrupts;
        link_interrupt_pending = false;
        link_handler();
        link_interrupt_pending = link_interrupt_pending || wants_link_bytes();
    }
    handles_link_interrupt = false;
}

void fake_board_t::enable_link_interrupts(bool enabled)
{
    link_interrupts_enabled = enabled;
    if (link_interrupt_pending)
    {
        raise_link_interrupt();
    }
}

void fake_board_t::enable_sensor_interrupts()
{
    sensor_interrupts_enabled = true;
    signal(0);
}

// ---- functions that the firmware calls
// ------------------------------------------------------------------------------

void enable_link_interrupts()
{
    board.enable_link_interrupts(true);
}

void disable_link_interrupts()
{
    board.enable_link_interrupts(false);
}

void raise_link_interrupt()
{
    board.raise_link_interrupt();
}

void enable_sensor_interrupts()
{
    board.enable_sensor_interrupts();
}

uint32_t board_counter_us(void)
{
    return board.counter_runs ? static_cast<uint32_t>(board.now_us()) : 0U;
}

bool board_log_can_send(void)
{
    return can_send(board.log);
}

void board_log_send(uint8_t byte)
{
    send(board.log, byte);
}

void board_link_open(uint32_t baudrate)
{
    board.cut_bytes += board.now_ns < board.link.idle_ns ? 1U : 0U;
    board.link.byte_time_ns = (10000000000U + baudrate - 1U) / baudrate;
    board.link_send_interrupt_on = false;
    board.on_link_open();
    record_call("link " + std::to_string(baudrate));
}

bool board_link_can_send(void)
{
    return can_send(board.link);
}

void board_link_send(uint8_t byte)
{
    send(board.link, byte);
    board.at_ns(board.link.buffer_free_ns, [] { board.finish_link_byte(); });
}

bool board_link_set_send_interrupt(bool on)
{
    board.link_send_interrupt_on = on;
    return board.link_send_interrupt != send_interrupt_t::none;
}

bool board_link_is_drained(void)
{
    return can_send(board.link) && (!board.link_reports_last_bit || board.now_ns >= board.link.idle_ns);
}

bool board_link_receive(uint8_t *byte)
{
    if (board.received.empty())
    {
        return false;
    }
    *byte = board.received.front();
    board.received.pop_front();
    return true;
}

void board_sensor_set_supply(uint32_t sensor_id, bool on)
{
    record_switch("supply ", sensor_id, on);
}

void board_sensor_set_enable(uint32_t sensor_id, bool on)
{
    record_switch("enable ", sensor_id, on);
}

void board_sensor_transfer(uint32_t sensor_id, uint8_t *buffer, size_t size)
{
    record_call("transfer " + std::to_string(sensor_id) + " " + std::to_string(size));
    std::reverse(buffer, buffer + size);
}

uint32_t board_sensor_take_interrupts(void)
{
    return std::exchange(board.sensor_lines, 0U);
}

void board_feed_watchdog(void)
{
    board.longest_unfed_ns = std::max(board.longest_unfed_ns, board.now_ns - board.last_feed_ns);
    board.last_feed_ns = board.now_ns;
}

void board_wait(uint32_t duration_us)
{
    board.wait(duration_us);
}

void board_wake(void)
{
    board.is_woken = true;
}

const char *board_reset_cause(void)
{
    ++board.reset_cause_reads;
    board.on_reset_cause();
    return board.reset_cause;
}

void zet_vantor_server_log(zet_log_level_t level, const char *module, const char *text)
{
    board.server_log.emplace_back(level, module, text);
}

void zet_vantor_server_look_ahead(const char *data, size_t size)
{
    board.shown.append(data, size);
}

bool zet_vantor_server_gives_up_wait(zet_vantor_server_host_t /*host*/)
{
    return board.shown.ends_with("end");
}

bool zet_vantor_server_has_given_up_wait()
{
    return board.has_given_up_wait;
}

void *zet_integration_mem_alloc(size_t size)
{
    return std::malloc(size);
}

void zet_integration_mem_free(void *ptr)
{
    std::free(ptr);
}
