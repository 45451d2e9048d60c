/** @file
 * The board's log.
 */
#include "log.h"

#include "clock.h"
#include "faults.h"
#include "uart.h"
#include "zet_vantor_server.h"

namespace
{

/** Least severe line for the log's port: a line takes milliseconds there. */
constexpr zet_log_level_t port_log_level = ZET_LOG_LEVEL_WARNING;

/** How long the server waits for a log that nobody takes: longer than 300 characters take at the port's
 * speed. */
constexpr uint64_t patience_us = 40000;

/** Writes a text, or as much of it as is taken before the deadline. */
void write(const char *text, uint64_t deadline_us)
{
    for (; *text != '\0'; ++text)
    {
        while (!uart_can_send(uart_t::log))
        {
            if (clock_now_us() >= deadline_us)
            {
                return;
            }
        }
        uart_send(uart_t::log, static_cast<uint8_t>(*text));
    }
}

} // namespace

void log_open()
{
    uart_open(uart_t::log, 115200, false);
}

void log_line(zet_log_level_t level, const char *module, const char *text)
{
    static constexpr const char *names[] = {"error: ", "warning: ", "info: ", "verbose: ", "debug: "};
    if (level <= port_log_level)
    {
        const uint64_t deadline_us = clock_now_us() + patience_us;
        write(names[level], deadline_us);
        write(module, deadline_us);
        write(": ", deadline_us);
        write(text, deadline_us);
        write("\r\n", deadline_us);
    }
    zet_vantor_server_log(level, module, text);
}

void write_fault_report(const char *text)
{
    write(text, clock_now_us() + patience_us);
}
