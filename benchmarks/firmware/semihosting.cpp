/** @file
 * Writes to the emulator's console and ends the emulator, with the calls in Arm's "Semihosting for AArch32
 * and AArch64".
 */
#include "semihosting.h"

#include <cstdint>

namespace
{

constexpr uint32_t write_text = 0x04;
constexpr uint32_t exit_extended = 0x20;
constexpr uint32_t application_exit = 0x20026;

void call(uint32_t operation, const void *argument)
{
    register uint32_t r0 __asm("r0") = operation;
    register const void *r1 __asm("r1") = argument;
    __asm volatile("bkpt 0xAB" : "+r"(r0) : "r"(r1) : "memory");
}

} // namespace

void console_write(const char *text)
{
    call(write_text, text);
}

void console_exit(int code)
{
    const uint32_t arguments[] = {application_exit, static_cast<uint32_t>(code)};
    for (;;)
    {
        call(exit_extended, arguments);
    }
}
