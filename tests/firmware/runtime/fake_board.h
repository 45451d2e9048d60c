/** @file
 * A board that exists in the memory of a test. Its time passes only where the test or the firmware waits.
 */
#ifndef VANTOR_FAKE_BOARD_H
#define VANTOR_FAKE_BOARD_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

/** A serial port's transmitter: a buffer for one byte, and a register that shifts another one out. */
struct transmitter_t
{
    uint64_t byte_time_ns = 0;
    bool is_blocked = false;     /**< takes nothing */
    uint64_t buffer_free_ns = 0; /**< when the last byte leaves the buffer */
    uint64_t idle_ns = 0;        /**< when its last bit has been sent */
    std::string sent;
};

/** A call of a function of the board, with its time in microseconds. */
using call_t = std::tuple<uint64_t, std::string>;

/** A line in the log of the server: level, module, text. */
using log_entry_t = std::tuple<int, std::string, std::string>;

/** The board. */
struct fake_board_t
{
    uint64_t now_ns = 0;
    bool counter_runs = true;
    uint64_t poll_time_ns = 1000; /**< what a question to a port takes */

    transmitter_t link;
    transmitter_t log;
    bool link_reports_last_bit = true; /**< whether the port knows more than that its buffer is empty */
    uint32_t cut_bytes = 0; /**< bytes that were still being sent when the link's port was opened again */
    std::deque<uint8_t> received; /**< by the link's port, not taken yet */
    uint32_t sensor_lines = 0;    /**< interrupts of sensors that are not acknowledged */

    const char *reset_cause = nullptr;
    uint32_t reset_cause_reads = 0;
    std::function<void()> on_reset_cause = [] {}; /**< what happens while it is read */

    std::vector<call_t> calls;   /**< what was switched */
    std::vector<uint32_t> waits; /**< durations that were asked for */
    std::vector<log_entry_t> server_log;
    uint64_t last_feed_ns = 0;
    uint64_t longest_unfed_ns = 0; /**< longest time between two feedings of the watchdog */

    uint64_t now_us() const
    {
        return now_ns / 1000;
    }

    /** Lets time pass, with the events that become due. */
    void advance_ns(uint64_t duration_ns);
    void advance_us(uint64_t duration_us)
    {
        advance_ns(duration_us * 1000);
    }

    /** Has something happen at a time. */
    void at_ns(uint64_t time_ns, std::function<void()> event)
    {
        events.emplace(time_ns, std::move(event));
    }
    void at(uint64_t time_us, std::function<void()> event)
    {
        at_ns(time_us * 1000, std::move(event));
    }

    /** Lets bytes arrive over the link, with one interrupt. */
    void receive(std::string_view bytes);

    /** Lets sensors signal, sensor 1 in the lowest bit, with one interrupt. */
    void signal(uint32_t sensors);

    /** Enables an interrupt; one that is pending is handled. */
    void enable_link_interrupt();
    void enable_sensor_interrupts();

    /** Waits as board_wait does. */
    void wait(uint32_t duration_us);

    bool is_woken = false;

private:
    void run_due_events();
    void count_step();

    std::multimap<uint64_t, std::function<void()>> events;
    uint64_t steps = 0;
    bool link_interrupt_enabled = false;
    bool sensor_interrupts_enabled = false;
};

/** The board of the test that runs. */
extern fake_board_t board;

/** Resets the processor: a new board, on which the firmware's memory is cleared, except what it retains. */
void reset_board();

/** What the firmware retains over a reset. */
std::span<uint8_t> retained_memory();

#endif
