/** @file
 * Data that survives a reset of the board, in memory that the start-up code does not clear.
 */
#include "retained.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "board.h"

namespace
{

/** Distinguishes retained data from the random content of memory after power-on. */
constexpr uint32_t mark = 0x52544E31U;

struct retained_t
{
    uint32_t mark;
    uint32_t inverted_mark;
    char cause[24];
    char fault[160];
};

[[gnu::section(".retained")]] retained_t retained;

/** The cause of this start. */
char reset_cause[sizeof retained.cause];

/** Whether this run has reported a fault. */
bool faulted;

template <size_t size> void copy(char (&text)[size], const char *from)
{
    (void)std::snprintf(text, size, "%s", from);
}

/** Returns a text, or another one when it is null. */
const char *text_or(const char *text, const char *otherwise)
{
    return text != nullptr ? text : otherwise;
}

} // namespace

void retained_start()
{
    const bool was_off = retained.mark != mark || retained.inverted_mark != ~mark;
    if (was_off)
    {
        retained = {mark, ~mark, {}, {}};
    }
    retained.cause[sizeof retained.cause - 1] = '\0';
    retained.fault[sizeof retained.fault - 1] = '\0';
    // Always called, because the flags of the chip may stay set until they have been read.
    const char *board_cause = text_or(board_reset_cause(), was_off ? "power on" : "reset");
    copy(reset_cause, retained.cause[0] != '\0' ? retained.cause : board_cause);
    retained.cause[0] = '\0';
}

const char *retained_reset_cause()
{
    return reset_cause;
}

const char *retained_last_fault()
{
    return retained.fault[0] != '\0' ? retained.fault : nullptr;
}

void retain_restart_cause(const char *cause)
{
    copy(retained.cause, cause);
}

void retain_fault(const char *text)
{
    if (!faulted)
    {
        faulted = true;
        retained.fault[0] = '\0';
        retain_restart_cause("fault");
    }
    const size_t length = std::strlen(retained.fault);
    (void)std::snprintf(retained.fault + length, sizeof retained.fault - length, "%s", text);
}
