/** @file
 * What the host needs, seen during a wait for a sensor.
 */
#ifndef VANTOR_FIRMWARE_HOST_H
#define VANTOR_FIRMWARE_HOST_H

/**
 * Shows the server what has arrived from the host. To be called during a wait for a sensor.
 *
 * @return whether the host needs the measurement no more
 */
bool host_ends_wait();

#endif
