/** @file
 * Makes the mistake whose number is in the seed of the board's settings.
 */
#include <cstdint>

#include "cortex_m4.h"
#include "faults.h"
#include "log.h"
#include "settings.h"
#include "start.h"

namespace
{

/** A word at an address that the compiler does not know beforehand. */
volatile uint32_t &word_at(uintptr_t address)
{
    volatile uintptr_t hidden = address;
    return cortex_m4::hardware_register(hidden);
}

void write_through_null()
{
    word_at(0) = 1;
}

void read_member_through_null()
{
    const uint32_t value = word_at(0x3F0);
    (void)value;
}

void write_to_flash()
{
    word_at(0x1000) = 1;
}

void touch_memory_that_is_not_there()
{
    const uint32_t value = word_at(0x20020000);
    (void)value;
}

void execute_data()
{
    static uint16_t instructions[] = {0x4770}; // bx lr
    const uintptr_t address = reinterpret_cast<uintptr_t>(instructions) | 1U;
    reinterpret_cast<void (*)()>(address)();
}

void divide_by_zero()
{
    volatile int zero = 0;
    volatile int result = 100 / zero;
    (void)result;
}

[[gnu::noinline]] uint32_t recurse(volatile uint32_t *depth)
{
    volatile uint32_t local = *depth + 1;
    return local != 0 ? recurse(&local) + local : 0;
}

void exhaust_the_stack()
{
    volatile uint32_t depth = 0;
    depth = recurse(&depth);
}

void raise_an_interrupt_without_a_handler()
{
    cortex_m4::enable_interrupt(31);
    word_at(0xE000E200U) = 1U << 31U; // pending
    __asm volatile("dsb\n\tisb");
}

void return_from_the_program()
{
}

constexpr void (*mistakes[])() = {
    write_through_null,
    read_member_through_null,
    write_to_flash,
    touch_memory_that_is_not_there,
    execute_data,
    divide_by_zero,
    exhaust_the_stack,
    raise_an_interrupt_without_a_handler,
    return_from_the_program,
};

} // namespace

void run_board()
{
    log_open();
    write_fault_report("started\r\n");
    mistakes[read_settings().seed]();
}
