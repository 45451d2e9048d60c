/** @file
 * The board's log.
 */
#include "log.h"

#include <cstdarg>
#include <cstdio>
#include <initializer_list>

#include "board.h"
#include "clock.h"
#include "faults.h"
#include "link.h"
#include "retained.h"
#include "zet_integration_log.h"
#include "zet_log_levels.h"
#include "zet_vantor_server.h"

namespace
{

/** Least severe level for the log's port, where a line takes milliseconds. */
constexpr zet_log_level_t port_log_level = ZET_LOG_LEVEL_WARNING;

/** Size of the longest text of a line, with its terminating zero; longer texts are cut. */
constexpr size_t text_size = 256;

/** Longest time for a line, enough for 300 characters at 115,200 baud. */
constexpr uint64_t line_time_us = 40000;

/**
 * Most polls of the port for one byte, more than fit into the time above. This limit ends the wait of a fault
 * report that is sent before the board has started its counter.
 */
constexpr uint32_t most_polls = 1000000;

/** Waits until the port can accept a byte; false when that takes too long. */
bool wait_for_port(uint64_t deadline_us)
{
    for (uint32_t polls = 0; !board_log_can_send(); ++polls)
    {
        board_feed_watchdog();
        if (clock_now_us() >= deadline_us || polls >= most_polls)
        {
            return false;
        }
    }
    return true;
}

/** Writes as much of a text as the port accepts before the deadline; returns whether that is all of it. */
bool write(const char *text, uint64_t deadline_us)
{
    for (; *text != '\0' && wait_for_port(deadline_us); ++text)
    {
        board_log_send(static_cast<uint8_t>(*text));
    }
    return *text == '\0';
}

} // namespace

void log_to_port(zet_log_level_t level, const char *module, const char *text)
{
    const uint64_t deadline_us = clock_now_us() + line_time_us;
    for (const char *part : {zet_log_level_prefixes[level].data(), module, ": ", text, "\r\n"})
    {
        (void)write(part, deadline_us);
    }
}

void log_line(zet_log_level_t level, const char *module, const char *text)
{
    if (level <= port_log_level && !zet_vantor_server_has_given_up_wait())
    {
        log_to_port(level, module, text);
    }
    zet_vantor_server_log(level, module, text);
}

// The simulated sensors define this function too; the linker uses this one, because it comes first.
void zet_integration_log(zet_log_level_t level, const char *module, const char *format, ...)
{
    char text[text_size];
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    log_line(level, module, text);
}

void add_to_fault_report(const char *text)
{
    retain_fault(text);
}

// Written last, because the clock or the port may have caused the fault.
void send_fault_report()
{
    const uint64_t deadline_us = clock_now_us() + line_time_us;
    (void)(write("fault: ", deadline_us) && write(retained_last_fault(), deadline_us) &&
           write("; restarting\r\n", deadline_us));
    link_send_rest();
}
