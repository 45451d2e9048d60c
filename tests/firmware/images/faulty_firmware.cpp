/** @file
 * Causes the fault whose number is the seed in the board's settings.
 */
#include <cstdint>
#include <cstdio>

#include "board.h"
#include "cortex_m4.h"
#include "faults.h"
#include "interrupts.h"
#include "log.h"
#include "retained.h"
#include "settings.h"
#include "start.h"

// From the linker script; the size is the symbol's address.
extern "C" {
extern uint8_t flash_begin[];
extern uint8_t ram_begin[];
extern uint8_t ram_size[];
}

namespace
{

/** A word at an address that the compiler does not know. */
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
    word_at(reinterpret_cast<uintptr_t>(flash_begin) + 0x1000U) = 1;
}

void read_beyond_the_memory()
{
    const uint32_t value =
        word_at(reinterpret_cast<uintptr_t>(ram_begin) + reinterpret_cast<uintptr_t>(ram_size));
    (void)value;
}

void execute_data()
{
    // bx lr
    static uint16_t instructions[] = {0x4770};
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

void exhaust_the_interrupt_stack()
{
    // Make SysTick pending.
    word_at(0xE000ED04U) = 1U << 26U;
    __asm volatile("dsb\n\tisb");
}

void call_the_supervisor()
{
    __asm volatile("svc 0");
}

void raise_an_interrupt_without_a_handler()
{
    cortex_m4::enable_interrupt(31);
    // Make the interrupt pending.
    word_at(0xE000E200U) = 1U << 31U;
    __asm volatile("dsb\n\tisb");
}

/** Whether the replaced functions of the board (see below) cause a fault. */
bool board_faults;

void fault_in_a_handler_and_in_its_report()
{
    board_faults = true;
    enable_link_interrupts();
    // Make the interrupt pending.
    word_at(0xE000E200U + BOARD_LINK_INTERRUPT / 32U * 4U) = 1U << BOARD_LINK_INTERRUPT % 32U;
    __asm volatile("dsb\n\tisb");
}

void return_from_the_program()
{
}

constexpr void (*faults[])() = {
    write_through_null,
    read_member_through_null,
    write_to_flash,
    read_beyond_the_memory,
    execute_data,
    divide_by_zero,
    exhaust_the_stack,
    exhaust_the_interrupt_stack,
    raise_an_interrupt_without_a_handler,
    call_the_supervisor,
    fault_in_a_handler_and_in_its_report,
    return_from_the_program,
};

} // namespace

extern "C" {
bool __real_board_link_receive(uint8_t *byte);
bool __wrap_board_link_receive(uint8_t *byte);
bool __real_board_log_can_send();
bool __wrap_board_log_can_send();
}

bool __wrap_board_link_receive(uint8_t *byte)
{
    return board_faults ? word_at(0) != 0U : __real_board_link_receive(byte);
}

bool __wrap_board_log_can_send()
{
    if (board_faults)
    {
        divide_by_zero();
    }
    return __real_board_log_can_send();
}

// A board may have its own handler.
void SysTick_Handler() noexcept
{
    exhaust_the_stack();
}

void sensor_handler()
{
}

void run_board()
{
    retained_start();
    board_start();
    const char *fault = retained_last_fault();
    char text[200];
    (void)std::snprintf(text, sizeof text, "started, %s, %s", retained_reset_cause(),
                        fault != nullptr ? fault : "none");
    log_to_port(ZET_LOG_LEVEL_INFO, "test", text);
    faults[read_settings().seed]();
}
