/** @file
 * The interrupts of the board that the program uses.
 */
#ifndef VANTOR_SKELETON_INTERRUPTS_H
#define VANTOR_SKELETON_INTERRUPTS_H

extern "C" {

/** Ends the sleep of the clock. */
void alarm_handler();

/** Takes the bytes that have come over the link. */
void link_handler();

/** Notes which sensors have signalled. */
void sensor_handler();
}

#endif
