/** @file
 * Replaces the processor in tests on a PC, and records its use.
 */
#ifndef VANTOR_CORTEX_M4_H
#define VANTOR_CORTEX_M4_H

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace cortex_m4
{

/** The processor of the running test. */
struct fake_processor_t
{
    bool interrupts_are_disabled = false;
    std::function<void()> pending;  /**< a pending interrupt, handled as soon as interrupts are enabled */
    std::vector<uint32_t> sleeps;   /**< in cycles */
    bool slept_unprotected = false; /**< whether an interrupt could have come between a check and a sleep */
};

inline fake_processor_t processor;

class interrupt_lock_t
{
public:
    interrupt_lock_t()
    {
        processor.interrupts_are_disabled = true;
    }
    ~interrupt_lock_t()
    {
        processor.interrupts_are_disabled = false;
        if (processor.pending)
        {
            std::exchange(processor.pending, nullptr)();
        }
    }
    interrupt_lock_t(const interrupt_lock_t &) = delete;
    interrupt_lock_t &operator=(const interrupt_lock_t &) = delete;
};

constexpr uint32_t longest_sleep_cycles = 0xFFFFFFU;

inline void sleep(uint32_t cycles)
{
    processor.sleeps.push_back(cycles);
    processor.slept_unprotected = processor.slept_unprotected || !processor.interrupts_are_disabled;
}

} // namespace cortex_m4

#endif
