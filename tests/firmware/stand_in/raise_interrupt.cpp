/** @file
 * The sensors' interrupt lines on an STM32F405: sensor 1 is line 0 of the EXTI, sensor 2 line 1, and so on.
 */
#include "stand_in.h"

namespace
{

/** A register of the processor. */
volatile uint32_t &at(uint32_t address)
{
    return *reinterpret_cast<volatile uint32_t *>(address); // NOLINT(performance-no-int-to-ptr)
}

constexpr uint32_t exti_mask = 0x40013C00;
constexpr uint32_t exti_software_event = 0x40013C10;
constexpr uint32_t exti_pending = 0x40013C14;
constexpr uint32_t nvic_pending = 0xE000E200;

/** Number of the interrupt of a line. The first five lines have one each. */
uint32_t interrupt_of(uint32_t line)
{
    return line < 5U ? 6U + line : line < 10U ? 23U : 40U;
}

/** Disables the processor's interrupts during its lifetime. */
class interrupt_lock_t
{
public:
    interrupt_lock_t()
    {
        __asm volatile("mrs %0, primask\n\tcpsid i" : "=r"(mask) : : "memory");
    }
    ~interrupt_lock_t()
    {
        __asm volatile("msr primask, %0" : : "r"(mask) : "memory");
    }
    interrupt_lock_t(const interrupt_lock_t &) = delete;
    interrupt_lock_t &operator=(const interrupt_lock_t &) = delete;

private:
    uint32_t mask;
};

} // namespace

void stand_in_raise_interrupt(zet_sensor_id_t sensor_id)
{
    const uint32_t bit = 1U << (sensor_id - 1U);
    const interrupt_lock_t lock;
    at(exti_software_event) = at(exti_software_event) | bit;
    // QEMU stores the event but does not raise the interrupt. There, make the interrupt itself pending.
    if ((at(exti_mask) & bit) != 0U && (at(exti_pending) & bit) == 0U)
    {
        const uint32_t number = interrupt_of(sensor_id - 1U);
        at(nvic_pending + number / 32U * 4U) = 1U << number % 32U;
    }
}

bool stand_in_interrupt_is_pending(zet_sensor_id_t sensor_id)
{
    const uint32_t number = interrupt_of(sensor_id - 1U);
    return (at(exti_pending) & (1U << (sensor_id - 1U))) != 0U ||
           (at(nvic_pending + number / 32U * 4U) & (1U << number % 32U)) != 0U;
}
