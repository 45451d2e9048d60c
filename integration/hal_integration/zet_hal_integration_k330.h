/** @file
 * What a board with `k330` sensors offers: supply, enable lines, interrupts. A port implements these.
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

/** Powers a sensor. */
void zet_hal_integration_sensor_supply_on(zet_sensor_id_t sensor_id);

/** Removes a sensor's power. */
void zet_hal_integration_sensor_supply_off(zet_sensor_id_t sensor_id);

/** Drives a sensor's enable line. The sensor is usable on return. */
void zet_hal_integration_sensor_enable(zet_sensor_id_t sensor_id);

/** Releases a sensor's enable line. Disable followed by enable resets the sensor. */
void zet_hal_integration_sensor_disable(zet_sensor_id_t sensor_id);

/**
 * Blocks until a sensor's interrupt line signals.
 *
 * @param sensor_id   the sensor
 * @param timeout_ms  longest wait, in milliseconds
 * @return true on interrupt, false when the time has passed without one
 */
bool zet_hal_integration_wait_for_sensor_interrupt(zet_sensor_id_t sensor_id, uint32_t timeout_ms);

/** Number of sensor positions on the board; sensors are numbered 1 to this count. */
uint16_t zet_hal_integration_sensor_count(void);

/**
 * The board's record for the sensor library.
 *
 * @return the record, valid for good; null when the board could not be set up
 */
const zet_hal_k330_t *zet_hal_nox_integration_get_implementation(void);

#ifdef __cplusplus
}
#endif

#endif
