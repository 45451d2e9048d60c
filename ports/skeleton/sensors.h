/** @file
 * The board's sensors, as the server and the sensor library see them: zet_hal_integration_k330.h.
 */
#ifndef VANTOR_SKELETON_SENSORS_H
#define VANTOR_SKELETON_SENSORS_H

/** Lets the interrupt of the sensors through. To be called once, before the server is brought up. */
void sensors_start();

#endif
