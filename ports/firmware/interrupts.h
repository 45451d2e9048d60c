/** @file
 * The interrupts that the firmware uses.
 */
#ifndef VANTOR_FIRMWARE_INTERRUPTS_H
#define VANTOR_FIRMWARE_INTERRUPTS_H

/** Lets the link's interrupt through. */
void enable_link_interrupt();

/** Lets the sensors' interrupts through, if the board has any. */
void enable_sensor_interrupts();

extern "C" {

/** Takes the bytes that have arrived over the link. */
void link_handler();

/** Notes which sensors have signalled. */
void sensor_handler();
}

#endif
