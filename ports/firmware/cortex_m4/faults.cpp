/** @file
 * Handling of processor faults.
 */
#include "faults.h"

#include <cstdint>
#include <iterator>

#include "cortex_m4.h"
#include "zet_vantor_server_utils.h"

using cortex_m4::hardware_register;

namespace
{

/** The registers that the processor saves on an exception. */
struct exception_frame_t
{
    uint32_t r0, r1, r2, r3, r12, lr, pc, psr;
};

constexpr uintptr_t configuration_and_control = 0xE000ED14U;
constexpr uintptr_t system_handler_control = 0xE000ED24U;
constexpr uintptr_t configurable_fault_status = 0xE000ED28U;
constexpr uintptr_t hard_fault_status = 0xE000ED2CU;
constexpr uintptr_t memory_fault_address = 0xE000ED34U;
constexpr uintptr_t bus_fault_address = 0xE000ED38U;

/** Bits of the fault status: the address register of the fault is valid. */
constexpr uint32_t memory_fault_address_valid = 1U << 7U;
constexpr uint32_t bus_fault_address_valid = 1U << 15U;

/** Bits of the fault status: the registers could not be saved, most likely because the stack is exhausted. */
constexpr uint32_t stacking_failed = 1U << 4U | 1U << 12U;

/** Number of the first exception that is an interrupt of a device. */
constexpr uint32_t first_interrupt = 16;

/** Reports a decimal number. */
void report_number(uint32_t number)
{
    char digits[11] = {};
    char *begin = &digits[10];
    do
    {
        *--begin = static_cast<char>('0' + number % 10U);
        number /= 10U;
    } while (number > 0U);
    add_to_fault_report(begin);
}

/** Reports which exception occurred. */
void report_exception(uint32_t number)
{
    static constexpr const char *names[] = {"thread",       "reset",     "NMI",        "hard fault",
                                            "memory fault", "bus fault", "usage fault"};
    if (number < std::size(names))
    {
        add_to_fault_report(names[number]);
        return;
    }
    add_to_fault_report("unexpected exception ");
    report_number(number);
    if (number >= first_interrupt)
    {
        add_to_fault_report(" (interrupt ");
        report_number(number - first_interrupt);
        add_to_fault_report(")");
    }
}

/** Reports a register. */
void report_register(const char *name, uint32_t value)
{
    uint8_t bytes[] = {static_cast<uint8_t>(value >> 24U), static_cast<uint8_t>(value >> 16U),
                       static_cast<uint8_t>(value >> 8U), static_cast<uint8_t>(value)};
    char digits[9] = {};
    convert_uint2hexstr(bytes, sizeof bytes, digits);
    add_to_fault_report(name);
    add_to_fault_report(digits);
}

/** Whether a fault is being reported. */
bool is_reporting;

/** Reports an exception and restarts the board. */
[[noreturn, gnu::used]] void report_fault(const exception_frame_t *frame)
{
    if (is_reporting)
    {
        // The report itself has faulted.
        cortex_m4::reset_system();
    }
    is_reporting = true;
    uint32_t exception = 0;
    __asm volatile("mrs %0, ipsr" : "=r"(exception));
    const uint32_t status = hardware_register(configurable_fault_status);
    report_exception(exception);
    report_register(", cfsr ", status);
    report_register(", hfsr ", hardware_register(hard_fault_status));
    if ((status & memory_fault_address_valid) != 0U)
    {
        report_register(", address ", hardware_register(memory_fault_address));
    }
    if ((status & bus_fault_address_valid) != 0U)
    {
        report_register(", address ", hardware_register(bus_fault_address));
    }
    if ((status & stacking_failed) != 0U)
    {
        add_to_fault_report(", stack exhausted");
    }
    else
    {
        report_register(", pc ", frame->pc);
        report_register(", lr ", frame->lr);
    }
    send_fault_report();
    cortex_m4::reset_system();
}

} // namespace

void cortex_m4::enable_faults()
{
    hardware_register(system_handler_control) =
        hardware_register(system_handler_control) | 1U << 16U | 1U << 17U | 1U << 18U;
    hardware_register(configuration_and_control) = hardware_register(configuration_and_control) | 1U << 4U;
}

extern "C" {

// Passes on the frame from the stack that was in use. If registers could not be saved, the interrupt stack
// may be exhausted: it is then used again from its top, because nothing returns to its contents.
[[gnu::naked]] void fault_handler() noexcept
{
    __asm volatile("tst lr, #4\n\t"
                   "ite eq\n\t"
                   "mrseq r0, msp\n\t"
                   "mrsne r0, psp\n\t"
                   "ldr r1, =%c1\n\t"
                   "ldr r1, [r1]\n\t"
                   "ldr r2, =%c2\n\t"
                   "tst r1, r2\n\t"
                   "itt ne\n\t"
                   "ldrne r1, =interrupt_stack_top\n\t"
                   "msrne msp, r1\n\t"
                   "b %c0\n\t" ::"i"(report_fault),
                   "i"(configurable_fault_status), "i"(stacking_failed));
}

[[gnu::weak, gnu::alias("fault_handler")]] void SVC_Handler() noexcept;
[[gnu::weak, gnu::alias("fault_handler")]] void PendSV_Handler() noexcept;
[[gnu::weak, gnu::alias("fault_handler")]] void SysTick_Handler() noexcept;
}
