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

/** Handles every exception that is no interrupt of the board. */
void fault_handler();

/**
 * Given by the board: writes a text to the log at once, in any state of the program and without interrupts.
 */
void write_fault_report(const char *text);
}

#endif
