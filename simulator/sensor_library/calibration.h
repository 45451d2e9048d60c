/** @file
 * Calibration results: the properties of one sensor, with a checksum that detects damage.
 */
#ifndef ZET_SIMULATOR_CALIBRATION_H
#define ZET_SIMULATOR_CALIBRATION_H

#include "zet_cpd_k330_meas_session_generated.h"
#include "zet_definitions_k330.h"

namespace zet_simulator
{

using calibration_parameters = zet_cpd_k330_meas_session_calibration_parameters_t;

/** Steps of a calibration; each takes calibration_step_us and ends with an interrupt. */
constexpr uint32_t calibration_step_count = 4;

/** Duration of a step, in microseconds. */
constexpr uint64_t calibration_step_us = 8000;

/** Temperature change since the calibration, in degrees, at which a new calibration is needed. */
constexpr int32_t calibration_temperature_span = 15;

/** Contents of a calibration result. */
struct calibration
{
    zet_sensor_id_t sensor_id;
    int16_t temperature;
    calibration_parameters parameters;
};

/**
 * Returns the frequency control at which a sensor transmits and receives exactly at the nominal carrier. It
 * differs from sensor to sensor and falls by one step per four degrees.
 */
uint16_t nominal_frequency_control(zet_sensor_id_t sensor_id, int16_t temperature);

/** Fills a result with the calibration of a sensor at a temperature. */
void calibration_fill(zet_sensor_id_t sensor_id, int16_t temperature, zet_cal_result_t &result);

/**
 * Opens a calibration result.
 *
 * @return false when it is damaged or incomplete
 */
bool calibration_open(const zet_cal_result_t &result, calibration &opened);

} // namespace zet_simulator

#endif
