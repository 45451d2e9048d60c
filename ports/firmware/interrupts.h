/** @file
 * The interrupts that the firmware uses.
 */
#ifndef VANTOR_FIRMWARE_INTERRUPTS_H
#define VANTOR_FIRMWARE_INTERRUPTS_H

/** Enables the link's interrupt. */
void enable_link_interrupt();

/** Enables the sensors' interrupts, if the board has any. */
void enable_sensor_interrupts();

extern "C" {

/** Stores the bytes that have arrived over the link. */
void link_handler();

/** Records which sensors have signalled. */
void sensor_handler();
}

#endif
