/** @file
 * A fake board in the memory of a test. Its time passes only when the test or the firmware waits.
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

/** When the link's port interrupts because it can accept a byte. */
enum class send_interrupt_t
{
    level, /**< as long as it can, while the interrupt is on */
    edge,  /**< whenever a byte has left its buffer */
    none,
};

/** The transmitter of a serial port: a buffer for one byte, and a shift register that sends another one. */
struct transmitter_t
{
    uint64_t byte_time_ns = 0;
    bool is_blocked = false;     /**< does not accept bytes */
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
    uint64_t poll_time_ns = 1000; /**< duration of a poll of a port */

    transmitter_t link;
    transmitter_t log;
    send_interrupt_t link_send_interrupt = send_interrupt_t::level;
    bool link_send_interrupt_on = false;
    uint32_t link_interrupts = 0;               /**< number of calls of the handler */
    std::function<void()> on_link_open = [] {}; /**< called while the link's port is opened */
    /** Whether the port reports the end of the last bit, rather than only an empty buffer. */
    bool link_reports_last_bit = true;
    uint32_t cut_bytes = 0;       /**< still in transmission when the link's port was opened again */
    std::deque<uint8_t> received; /**< by the link's port, not read yet */
    uint32_t sensor_lines = 0;    /**< interrupts of sensors that were not acknowledged */

    const char *reset_cause = nullptr;
    uint32_t reset_cause_reads = 0;
    std::function<void()> on_reset_cause = [] {}; /**< called while it is read */

    std::vector<call_t> calls;   /**< calls that switched something */
    std::vector<uint32_t> waits; /**< requested durations */
    std::vector<log_entry_t> server_log;
    std::string shown;              /**< to the server, which gives up its wait when this ends with "end" */
    bool has_given_up_wait = false; /**< the server has given up a wait for a sensor */
    uint64_t last_feed_ns = 0;
    uint64_t longest_unfed_ns = 0; /**< longest time without feeding the watchdog */

    uint64_t now_us() const
    {
        return now_ns / 1000;
    }

    /** Advances the time and runs the events that become due. */
    void advance_ns(uint64_t duration_ns);
    void advance_us(uint64_t duration_us)
    {
        advance_ns(duration_us * 1000);
    }

    /** Runs an event at a time. */
    void at_ns(uint64_t time_ns, std::function<void()> event)
    {
        events.emplace(time_ns, std::move(event));
    }
    void at(uint64_t time_us, std::function<void()> event)
    {
        at_ns(time_us * 1000, std::move(event));
    }

    /** Receives bytes over the link, with one interrupt. */
    void receive(std::string_view bytes);

    /** Raises the interrupts of sensors, sensor 1 in the lowest bit, as one interrupt. */
    void signal(uint32_t sensors);

    /** Lets the link's port accept bytes again. */
    void unblock_link();

    /** The link's port interrupts if the end of a byte does that. */
    void finish_link_byte();

    /** The interrupts of the link. A handler never interrupts itself. */
    void raise_link_interrupt();
    void enable_link_interrupts(bool enabled);

    /** Enables the interrupts of the sensors. A pending one is handled. */
    void enable_sensor_interrupts();

    /** Implements board_wait. */
    void wait(uint32_t duration_us);

    bool is_woken = false;

private:
    bool wants_link_bytes() const;
    void run_due_events();
    void count_step();

    std::multimap<uint64_t, std::function<void()>> events;
    uint64_t steps = 0;
    bool link_interrupts_enabled = false;
    bool link_interrupt_pending = false;
    bool handles_link_interrupt = false;
    bool sensor_interrupts_enabled = false;
};

/** The board of the running test. */
extern fake_board_t board;

/** Resets the processor: creates a new board and clears the firmware's memory, except the retained memory. */
void reset_board();

/** The memory that the firmware retains over a reset. */
std::span<uint8_t> retained_memory();

#endif
