/** @file
 * Handling of processor faults: a report in the log, then a restart of the board.
 */
#ifndef VANTOR_CORTEX_M4_FAULTS_H
#define VANTOR_CORTEX_M4_FAULTS_H

namespace cortex_m4
{

/** Enables a separate exception for each kind of fault, including division by zero. */
void enable_faults();

} // namespace cortex_m4

extern "C" {

/** Handles every exception that has no other handler: reports it and restarts the board. */
void fault_handler() noexcept;

// Their usual names, so that an operating system can define its own.
// NOLINTBEGIN(readability-identifier-naming)
void SVC_Handler() noexcept;
void PendSV_Handler() noexcept;
void SysTick_Handler() noexcept;
// NOLINTEND(readability-identifier-naming)

/** Provided by the firmware: retains a part of a report. Must work in any state, without interrupts. */
void add_to_fault_report(const char *text);

/** Provided by the firmware: sends the report; it may fault. */
void send_fault_report();
}

#endif
