/** @file
 * What happens on a fault of the processor.
 */
#include "faults.h"

#include <cstdint>

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

/** Bits of the fault status: the address register of the fault holds. */
constexpr uint32_t memory_fault_address_valid = 1U << 7U;
constexpr uint32_t bus_fault_address_valid = 1U << 15U;

/** Bits of the fault status: the registers could not be saved, for want of stack most likely. */
constexpr uint32_t stacking_failed = 1U << 4U | 1U << 12U;

/** Names of the exceptions by number. */
const char *exception_name(uint32_t number)
{
    static constexpr const char *names[] = {"thread",       "reset",     "NMI",        "hard fault",
                                            "memory fault", "bus fault", "usage fault"};
    return number < sizeof names / sizeof names[0] ? names[number] : "unexpected exception";
}

/** Reports a register. */
void report_register(const char *name, uint32_t value)
{
    uint8_t bytes[] = {static_cast<uint8_t>(value >> 24U), static_cast<uint8_t>(value >> 16U),
                       static_cast<uint8_t>(value >> 8U), static_cast<uint8_t>(value)};
    char digits[9] = {};
    convert_uint2hexstr(bytes, sizeof bytes, digits);
    write_fault_report(name);
    write_fault_report(digits);
}

/** Reports an exception and restarts the board. */
[[noreturn, gnu::used]] void report_fault(const exception_frame_t *frame)
{
    uint32_t exception = 0;
    __asm volatile("mrs %0, ipsr" : "=r"(exception));
    const uint32_t status = hardware_register(configurable_fault_status);
    write_fault_report("fault: ");
    write_fault_report(exception_name(exception));
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
        write_fault_report(", stack exhausted");
    }
    else
    {
        report_register(", pc ", frame->pc);
        report_register(", lr ", frame->lr);
    }
    write_fault_report("; restarting\r\n");
    cortex_m4::reset_system();
}

} // namespace

void cortex_m4::enable_faults()
{
    hardware_register(system_handler_control) =
        hardware_register(system_handler_control) | 1U << 16U | 1U << 17U | 1U << 18U;
    hardware_register(configuration_and_control) = hardware_register(configuration_and_control) | 1U << 4U;
}

// Hands the frame on from the stack that was in use.
[[gnu::naked]] void fault_handler()
{
    __asm volatile("tst lr, #4\n\t"
                   "ite eq\n\t"
                   "mrseq r0, msp\n\t"
                   "mrsne r0, psp\n\t"
                   "b %c0\n\t" ::"i"(report_fault));
}
