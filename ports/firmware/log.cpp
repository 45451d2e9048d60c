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
#include "retained.h"
#include "zet_integration_log.h"
#include "zet_log_levels.h"
#include "zet_vantor_server.h"

namespace
{

/** Least severe line for the log's port: a line takes milliseconds there. */
constexpr zet_log_level_t port_log_level = ZET_LOG_LEVEL_WARNING;

/** Longest text of a line, with its end; what is longer is cut. */
constexpr size_t text_size = 256;

/** How long a line may take: longer than 300 characters at 115,200 baud. */
constexpr uint64_t patience_us = 40000;

/**
 * Most questions to the port for one byte, more than go in the time above. They end the wait of a fault
 * report that comes before the board has started its counter.
 */
constexpr uint32_t most_polls = 1000000;

/** Waits until the port can take a byte; false when it takes too long. */
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

/** Writes a text, or as much of it as the port takes before the deadline; returns whether that is all. */
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
    const uint64_t deadline_us = clock_now_us() + patience_us;
    for (const char *part : {zet_log_level_prefixes[level].data(), module, ": ", text, "\r\n"})
    {
        (void)write(part, deadline_us);
    }
}

void log_line(zet_log_level_t level, const char *module, const char *text)
{
    if (level <= port_log_level)
    {
        log_to_port(level, module, text);
    }
    zet_vantor_server_log(level, module, text);
}

// Simulated sensors bring a function of this name; this one is linked where it comes first.
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

// Written last, because the clock or the port may be what has faulted.
void send_fault_report()
{
    const uint64_t deadline_us = clock_now_us() + patience_us;
    (void)(write("fault: ", deadline_us) && write(retained_last_fault(), deadline_us) &&
           write("; restarting\r\n", deadline_us));
}
