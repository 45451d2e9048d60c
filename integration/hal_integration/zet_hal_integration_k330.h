/** @file
 * What a board with `k330` sensors provides: supply, enable lines, interrupts. The port implements it.
 *
 * All functions are called on the server's only thread, never from an interrupt, and none while another one
 * runs. Interrupt handlers belong to the port. Sensor ids are 1 to zet_hal_integration_sensor_count.
 *
 * How the server calls them for one sensor:
 *
 * - It switches a sensor on with supply_on, then enable, and off with disable, then supply_off.
 * - When it starts, it switches every position on and off, fitted or not, one after the other.
 * - In a session a sensor is on from its first item in the configuration to the end of the session. Other
 *   sensors are on at the same time.
 * - It resets a sensor after every calibration, with disable and enable, while the supply is on.
 * - After an error it may switch off a sensor that is already off, and enable one that has no supply.
 *   Switching off again has no effect; enabling without supply must do no harm, and disable follows it.
 *
 * The switching functions cannot report a failure. zet_sensor_connected finds out whether a sensor is
 * present.
 */
#ifndef ZET_HAL_INTEGRATION_K330_H
#define ZET_HAL_INTEGRATION_K330_H

#include <stdbool.h>
#include <stdint.h>

#include "zet_definitions_common.h"
#include "zet_hal_definitions_k330.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Switches a sensor's supply on.
 *
 * Blocks as long as the supply takes to rise. Not called for a sensor whose supply is on.
 *
 * @param sensor_id  the sensor
 */
void zet_hal_integration_sensor_supply_on(zet_sensor_id_t sensor_id);

/**
 * Switches a sensor's supply off. The sensor loses its state. Does not wait.
 *
 * @param sensor_id  the sensor; its supply may be off already
 */
void zet_hal_integration_sensor_supply_off(zet_sensor_id_t sensor_id);

/**
 * Drives a sensor's enable line.
 *
 * Blocks as long as the sensor takes to start: with supply it is usable on return. An interrupt of this
 * sensor that came before the return is dropped; those of other sensors are kept.
 *
 * @param sensor_id  the sensor
 */
void zet_hal_integration_sensor_enable(zet_sensor_id_t sensor_id);

/**
 * Releases a sensor's enable line, also while the sensor measures or calibrates.
 *
 * Blocks as long as a reset takes, so that enable may follow immediately.
 *
 * @param sensor_id  the sensor; its enable line may be released already
 */
void zet_hal_integration_sensor_disable(zet_sensor_id_t sensor_id);

/**
 * Waits for a sensor's interrupt. This is the only function called by the server that waits for the work of a
 * sensor.
 *
 * Called once for every step of a calibration and for every measurement that was started. All sensors of a
 * group are started first and then waited for one after the other. So an interrupt can come before its
 * wait, also during the wait for another sensor, and is kept until its sensor is waited for or enabled.
 * Several interrupts of a sensor before a wait count as one. One that comes after the time-out is kept for
 * the next wait.
 *
 * Blocks until the interrupt or the time-out; nothing else ends the wait, not even a command or the loss of
 * the host. Interrupts are handled during the wait, and a port with a watchdog restarts its count.
 *
 * @param sensor_id   the sensor
 * @param timeout_ms  longest wait, in milliseconds: the server passes one second plus a frame period plus
 *                    the sweeps of a frame; UINT32_MAX has no special meaning
 * @return true as soon as the interrupt comes, immediately if it came before; false when the time has passed
 *         without it: the server calls zet_sensor_status and ends the session with an error
 */
bool zet_hal_integration_wait_for_sensor_interrupt(zet_sensor_id_t sensor_id, uint32_t timeout_ms);

/**
 * Returns the number of sensor positions on the board, fitted or not; sensors are numbered 1 to this count.
 *
 * Called whenever the server starts; the number must not change afterwards. Does not wait.
 */
uint16_t zet_hal_integration_sensor_count(void);

/**
 * Returns the board's record for the sensor library.
 *
 * Called whenever the server starts, before all other functions of this header.
 *
 * @return the record, owned by the port, unchanged and valid for the lifetime of the program; null when the
 *         board could not be set up: then the server does not start and calls no other function of this
 *         header
 */
const zet_hal_k330_t *zet_hal_nox_integration_get_implementation(void);

#ifdef __cplusplus
}
#endif

#endif
