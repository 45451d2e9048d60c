/** @file
 * The interrupts that the firmware uses.
 */
#ifndef VANTOR_FIRMWARE_INTERRUPTS_H
#define VANTOR_FIRMWARE_INTERRUPTS_H

/** Enables the link's interrupts. */
void enable_link_interrupts();

/** Disables the link's interrupts. */
void disable_link_interrupts();

/** Calls link_handler as an interrupt, as soon as the link's interrupts are enabled. */
void raise_link_interrupt();

/** Enables the sensors' interrupts, if the board has any. */
void enable_sensor_interrupts();

extern "C" {

/** Stores the bytes that have arrived over the link, and sends those that wait. */
void link_handler();

/** Records which sensors have signalled. */
void sensor_handler();
}

#endif
