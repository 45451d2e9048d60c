/** @file
 * The board's log: formats a line in a fixed buffer and passes it to the port's sink.
 */
#include <cstdarg>
#include <cstdio>

#include "board/board.h"
#include "zet_integration_log.h"

namespace
{

/** Size of the longest log line, with its terminating zero; longer lines are cut. */
constexpr size_t line_size = 256;

} // namespace

void zet_integration_log(zet_log_level_t level, const char *module, const char *format, ...)
{
    const zet_simulator_options_t &options = zet_simulator::board_options();
    if (options.log == nullptr || level > options.log_level)
    {
        return;
    }
    char line[line_size];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    if (length >= 0)
    {
        options.log(level, module, line);
    }
}
