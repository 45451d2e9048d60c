/** @file
 * The measurement program: what a prepare computes and loads into the sensor.
 */
#ifndef ZET_SIMULATOR_PROGRAM_H
#define ZET_SIMULATOR_PROGRAM_H

#include "sensor_library/calibration.h"
#include "sensor_library/signal.h"
#include "sensor_library/timing.h"

struct zet_sensor;

namespace zet_simulator
{

/** What a prepare loads into the sensor. */
struct measurement_program
{
    const zet_config *config; /**< the prepared configuration; null when the sensor is not prepared */
    uint32_t config_revision; /**< to detect a change after the prepare */
    uint32_t reset_count;     /**< of the sensor, to detect a reset after the prepare */
    uint32_t sample_count;
    uint16_t sweeps_per_frame;
    uint8_t num_subsweeps;
    bool listens; /**< makes a clear-channel measurement before each frame */
    bool double_buffering;
    uint16_t tx_control; /**< the frequency controls in use */
    uint16_t rx_control;
    int16_t calibration_temperature;
    frame_timing timing;
    frame_signal frame;
    subsweep_signal subsweeps[ZET_MAX_NUM_SUBSWEEPS];
};

/**
 * Computes a program.
 *
 * @param config       a valid configuration
 * @param block        the words that control the sensor
 * @param calibration  the calibration in use
 */
measurement_program program_of(const zet_sensor &sensor, const zet_config &config,
                               const parameter_block &block, const calibration &calibration);

/** Checks that a sensor still contains the program that it was prepared with; logs if not. */
bool program_is_loaded(const zet_sensor &sensor, const char *operation);

} // namespace zet_simulator

#endif
