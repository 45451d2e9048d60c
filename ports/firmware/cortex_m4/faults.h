/** @file
 * What happens on a fault of the processor: a report on the log, then a restart of the board.
 */
#ifndef VANTOR_CORTEX_M4_FAULTS_H
#define VANTOR_CORTEX_M4_FAULTS_H

namespace cortex_m4
{

/** Gives each kind of fault its own exception, division by zero included. */
void enable_faults();

} // namespace cortex_m4

extern "C" {

/** Handles every exception that has no other handler: reports it and restarts the board. */
void fault_handler() noexcept;

// Their usual names, under which an operating system brings its own.
// NOLINTBEGIN(readability-identifier-naming)
void SVC_Handler() noexcept;
void PendSV_Handler() noexcept;
void SysTick_Handler() noexcept;
// NOLINTEND(readability-identifier-naming)

/** Given by the firmware, without interrupts and in any state of the program: retains a part of a report. */
void add_to_fault_report(const char *text);

/** Given by the firmware: sends the report, which may fault. */
void send_fault_report();
}

#endif
