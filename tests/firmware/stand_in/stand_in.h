/** @file
 * A stand-in for the manufacturer's sensor library, to link and run firmware without it.
 *
 * It implements every function of `nox/`, but does not measure. A call that the headers there forbid is
 * logged at level ERROR, counted, and fails or has no effect. A failure that the headers allow (an invalid
 * configuration, a damaged calibration, out of memory) is not counted.
 *
 * - There are 16 sensor positions, all with a connected sensor.
 * - A calibration takes three steps with an interrupt each, then a call that completes it.
 * - A sensor whose supply or enable line is switched off loses its program and a calibration in progress.
 * - Calibrate and prepare fail when both lines of the handle's sensor were switched off. This is not counted,
 *   because the server may call them after a failed item.
 * - The lines are watched if the image is linked with `-Wl,--wrap=board_sensor_set_supply` and
 *   `-Wl,--wrap=board_sensor_set_enable`, and the board's code is compiled without `-flto`. Otherwise every
 *   sensor is treated as on and reset.
 * - A measurement ends immediately. The frame rate of a configuration does not delay it.
 * - A frame has the samples of stand_in_sample, temperature 25, no flag set and clear-channel value 0.25.
 * - The highest sweep rate is 1,000,000 Hz divided by the points of a sweep. One sub-sweep with a sensor that
 *   stays ready between sweeps is measured in the high-speed mode.
 */
#ifndef STAND_IN_H
#define STAND_IN_H

#include <stdbool.h>
#include <stdint.h>

#include "zet_cpd_k330_meas_session_generated.h"
#include "zet_definitions_common.h"
#include "zet_definitions_k330.h"

/** Number of sensor positions. */
#define STAND_IN_SENSOR_COUNT 16U

/** Number of interrupts of a calibration. */
#define STAND_IN_CALIBRATION_STEPS 3U

/** Temperature of every frame and calibration, in degrees Celsius. */
#define STAND_IN_TEMPERATURE 25

/** Clear-channel value of every frame, if the configuration enables it. */
#define STAND_IN_CCA_VALUE 0.25F

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(bugprone-dynamic-static-initializers): a declaration does not initialise anything
/** Number of contract violations since the start. */
extern uint32_t stand_in_violations;

/** Text of the last contract violation; empty at the start. */
extern char stand_in_last_violation[160];
// NOLINTEND(bugprone-dynamic-static-initializers)

/**
 * The sample of a frame at a point.
 *
 * @param sensor_id     the sensor
 * @param frame_number  number of the frame since the sensor's handle was created, from 0
 * @param point         index of the sample in the frame, from 0
 */
static inline zet_int16_complex_t stand_in_sample(zet_sensor_id_t sensor_id, uint32_t frame_number,
                                                  uint32_t point)
{
    zet_int16_complex_t sample;
    sample.real = (int16_t)(uint16_t)(frame_number * 7U + point * 3U + sensor_id);
    sample.imag = (int16_t)(uint16_t)point;
    return sample;
}

/** The parameter block of the last prepare of a sensor, or null. */
const zet_cpd_k330_meas_session_parameters_t *stand_in_parameters(zet_sensor_id_t sensor_id);

/** Resets the stand-in to its state at the start. Drops all handles without freeing them. For tests. */
void stand_in_reset(void);

/** Records that the supply of a sensor is switched, and checks that this is allowed. */
void stand_in_note_supply(zet_sensor_id_t sensor_id, bool on);

/** Records that the enable line of a sensor is switched, and checks that this is allowed. */
void stand_in_note_enable(zet_sensor_id_t sensor_id, bool on);

/** @name Functions that depend on the processor and the image
 * @{
 */

/** Returns whether all changes of the lines are recorded. */
bool stand_in_sees_lines(void);

/** Raises a sensor's interrupt. */
void stand_in_raise_interrupt(zet_sensor_id_t sensor_id);

/** Returns whether a raised interrupt of a sensor was not handled yet. */
bool stand_in_interrupt_is_pending(zet_sensor_id_t sensor_id);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
