/** @file
 * Functions of a Cortex-M4F that C++ does not provide: interrupts, sleep, reset.
 */
#ifndef VANTOR_CORTEX_M4_H
#define VANTOR_CORTEX_M4_H

#include <cstdint>

namespace cortex_m4
{

/** Returns the 32-bit hardware register at an address. */
inline volatile uint32_t &hardware_register(uintptr_t address)
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a register is given by its address.
    return *reinterpret_cast<volatile uint32_t *>(address);
}

/**
 * Disables interrupts as long as it exists. An interrupt that comes during this time still ends
 * wait_for_interrupt(), and is handled at the end of the lock, even if the next lock follows immediately.
 */
class interrupt_lock_t
{
public:
    interrupt_lock_t()
    {
        __asm volatile("mrs %0, primask\n\tcpsid i" : "=r"(primask_)::"memory");
    }
    ~interrupt_lock_t()
    {
        __asm volatile("msr primask, %0\n\tisb" ::"r"(primask_) : "memory");
    }
    interrupt_lock_t(const interrupt_lock_t &) = delete;
    interrupt_lock_t &operator=(const interrupt_lock_t &) = delete;

private:
    uint32_t primask_;
};

/** Sleeps until an interrupt is pending. */
inline void wait_for_interrupt()
{
    __asm volatile("dsb\n\twfi" ::: "memory");
}

/** Longest time that SysTick can count, in cycles of the processor. */
constexpr uint32_t longest_sleep_cycles = 0xFFFFFFU;

/**
 * Sleeps until an interrupt is pending, or for a time. To be called with interrupts disabled; SysTick, which
 * ends the sleep, is switched off again before it can interrupt.
 *
 * @param cycles  of the processor, 1 to longest_sleep_cycles
 */
inline void sleep(uint32_t cycles)
{
    volatile uint32_t *const systick = &hardware_register(0xE000E010U);
    // The reload value.
    systick[1] = cycles;
    // The current value: the next cycle reloads it.
    systick[2] = 0;
    // Runs on the processor's clock and interrupts.
    systick[0] = 7U;
    wait_for_interrupt();
    systick[0] = 0;
    // Its interrupt is no longer pending.
    hardware_register(0xE000ED04U) = 1U << 25U;
}

/** Enables an external interrupt. */
inline void enable_interrupt(uint32_t number)
{
    hardware_register(0xE000E100U + number / 32U * 4U) = 1U << number % 32U;
}

/** Disables an external interrupt. Its handler does not run any more when the function returns. */
inline void disable_interrupt(uint32_t number)
{
    hardware_register(0xE000E180U + number / 32U * 4U) = 1U << number % 32U;
    __asm volatile("dsb\n\tisb" ::: "memory");
}

/** Makes an external interrupt pending. If it is enabled, its handler runs before the function returns. */
inline void raise_interrupt(uint32_t number)
{
    hardware_register(0xE000E200U + number / 32U * 4U) = 1U << number % 32U;
    __asm volatile("dsb\n\tisb" ::: "memory");
}

/** Returns the number of the external interrupt whose handler is running. */
inline uint32_t active_interrupt()
{
    uint32_t exception = 0;
    __asm volatile("mrs %0, ipsr" : "=r"(exception));
    return exception - 16U;
}

/** Restarts the board. */
[[noreturn]] inline void reset_system()
{
    __asm volatile("dsb" ::: "memory");
    hardware_register(0xE000ED0CU) = 0x05FA0004U;
    for (;;)
    {
        wait_for_interrupt();
    }
}

} // namespace cortex_m4

#endif
