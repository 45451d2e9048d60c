/** @file
 * From reset to the program.
 */
#include "start.h"

#include <cstring>

#include "cortex_m4.h"
#include "faults.h"
#include "memory_protection.h"

namespace
{

/** The first part of the vector table: the initial stack and the 15 exceptions of the core. */
struct core_vectors_t
{
    uint32_t *stack;
    void (*reset)();
    void (*nmi)();
    void (*hard_fault)();
    void (*memory_fault)();
    void (*bus_fault)();
    void (*usage_fault)();
    void (*reserved_1[4])();
    void (*supervisor_call)();
    void (*debug)();
    void (*reserved_2)();
    void (*pend_sv)();
    void (*sys_tick)();
};

} // namespace

extern "C" {

// From the linker script.
extern uint8_t data_begin[];
extern uint8_t data_end[];
extern const uint8_t data_image[];
extern uint8_t bss_begin[];
extern uint8_t bss_end[];

/**
 * Switches off what a boot loader has left on, and enables interrupts. Faults have a higher priority, so that
 * a fault in an interrupt handler is reported like any other, and a fault in that report restarts the board.
 */
static void start_interrupts()
{
    constexpr uintptr_t system_tick = 0xE000E010U;
    constexpr uintptr_t interrupt_control = 0xE000ED04U;
    constexpr uint32_t clear_system_tick_and_pend_sv = 1U << 25U | 1U << 27U;
    cortex_m4::hardware_register(system_tick) = 0;
    cortex_m4::hardware_register(interrupt_control) = clear_system_tick_and_pend_sv;
    for (uint32_t word = 0; word < 8U; ++word)
    {
        // Disabled.
        cortex_m4::hardware_register(0xE000E180U + word * 4U) = UINT32_MAX;
        // Not pending.
        cortex_m4::hardware_register(0xE000E280U + word * 4U) = UINT32_MAX;
    }
    constexpr uint32_t below_faults = 0x80808080U;
    // SysTick, PendSV.
    cortex_m4::hardware_register(0xE000ED20U) = below_faults;
    for (uint32_t word = 0; word < 60U; ++word)
    {
        cortex_m4::hardware_register(0xE000E400U + word * 4U) = below_faults;
    }
    __asm volatile("msr basepri, %0\n\tcpsie f\n\tcpsie i" ::"r"(0) : "memory");
}

/** The second half of the start, on the program's stack and with the floating-point unit on. */
[[noreturn, gnu::used]] static void start_program()
{
    std::memcpy(data_begin, data_image, static_cast<size_t>(data_end - data_begin));
    std::memset(bss_begin, 0, static_cast<size_t>(bss_end - bss_begin));
    cortex_m4::enable_faults();
    cortex_m4::protect_memory();
    start_interrupts();
    run_board();
    cortex_m4::reset_system();
}

// In assembly, because compiled code may use the floating-point unit and the stack that are set up here. The
// stacks are adjacent, with a guard between them, so they are painted as one. The vector table may be after a
// boot loader.
[[gnu::naked]] void reset_handler()
{
    __asm volatile("cpsid i\n\t"
                   // CPACR: full access to the floating-point unit.
                   "ldr r0, =0xE000ED88\n\t"
                   "ldr r1, [r0]\n\t"
                   "orr r1, r1, #0x00F00000\n\t"
                   "str r1, [r0]\n\t"
                   // VTOR.
                   "ldr r0, =0xE000ED08\n\t"
                   "ldr r1, =vectors_begin\n\t"
                   "str r1, [r0]\n\t"
                   "dsb\n\t"
                   "isb\n\t"
                   "ldr r0, =interrupt_stack_bottom\n\t"
                   "ldr r1, =program_stack_top\n\t"
                   "ldr r2, =%c0\n"
                   "1:\n\t"
                   "str r2, [r0], #4\n\t"
                   "cmp r0, r1\n\t"
                   "bne 1b\n\t"
                   "ldr r0, =interrupt_stack_top\n\t"
                   "msr msp, r0\n\t"
                   "msr psp, r1\n\t"
                   // CONTROL: the program uses its own stack.
                   "movs r0, #2\n\t"
                   "msr control, r0\n\t"
                   "isb\n\t"
                   "b start_program\n\t" ::"i"(STACK_PAINT));
}

[[gnu::section(".core_vectors"), gnu::used]] static const core_vectors_t core_vectors = {
    interrupt_stack_top, reset_handler, fault_handler, fault_handler,
    fault_handler,       fault_handler, fault_handler, {},
    SVC_Handler,         fault_handler, nullptr,       PendSV_Handler,
    SysTick_Handler,
};
}
