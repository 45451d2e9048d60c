/** @file
 * Processing: converts a frame from the sensor's format into complex samples.
 *
 * All functions are called on the server's only thread, never from an interrupt, and none while another one
 * runs. They need no sensor, transfer nothing and block only for their calculations.
 */
#ifndef ZET_PROCESSING_H
#define ZET_PROCESSING_H

#include <stdbool.h>
#include <stdint.h>

#include "zet_config.h"
#include "zet_definitions_k330.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The processing of one configuration; created and destroyed by the library only. */
typedef struct zet_processing zet_processing_t;

/** Layout of the frames of a configuration. All lengths and offsets count complex samples. */
typedef struct
{
    uint16_t frame_data_length;                           /**< samples in a frame */
    uint16_t sweep_data_length;                           /**< samples in a sweep */
    uint16_t subsweep_data_offset[ZET_MAX_NUM_SUBSWEEPS]; /**< where each sub-sweep starts in a sweep */
    uint16_t subsweep_data_length[ZET_MAX_NUM_SUBSWEEPS]; /**< samples in each sub-sweep */
    float max_sweep_rate;                                 /**< highest sweep rate, in hertz */
    bool high_speed_mode;                                 /**< measured in the high-speed mode */
} zet_processing_metadata_t;

/** One processed frame. */
typedef struct
{
    bool data_saturated;        /**< a sample reached the end of the scale */
    bool frame_delayed;         /**< the frame was started or read too late for the frame rate */
    bool calibration_needed;    /**< the temperature has moved too far from that of the calibration */
    int16_t temperature;        /**< relative, in degrees Celsius; use it only to compare with other frames */
    zet_int16_complex_t *frame; /**< samples in the work buffer, valid until the buffer is used again */
} zet_processing_result_t;

/**
 * Creates the processing of a configuration. Called once for each configuration, before the first frame.
 *
 * @param config    the configuration; read during the call only, and may be destroyed before the processing
 * @param metadata  receives the frame layout, the same for every frame of the configuration
 * @return the processing, owned by the caller, to be destroyed with zet_processing_destroy; null when the
 *         configuration is not valid or memory is exhausted
 */
zet_processing_t *zet_processing_create(const zet_config_t *config, zet_processing_metadata_t *metadata);

/**
 * Processes a frame in place. Called once for each frame, after zet_sensor_read and
 * zet_processing_cca_check. Cannot report a failure: zet_sensor_read must not succeed with a frame that
 * cannot be processed.
 *
 * The server sends the samples to the host after it has read the sensors of all groups. They stay valid
 * until the buffer is passed to zet_sensor_prepare or zet_sensor_read again.
 *
 * @param processing  the processing created from the frame's configuration
 * @param buffer      a buffer filled by zet_sensor_read
 * @param result      receives the flags and the address of the samples inside @p buffer; their number is the
 *                    frame_data_length of the metadata
 */
void zet_processing_execute(zet_processing_t *processing, void *buffer, zet_processing_result_t *result);

/**
 * Converts a number of points into a distance. Cannot fail; the result is the same in every session.
 *
 * @param points  number of base steps
 * @return the distance in metres
 */
float zet_processing_points_to_meter(int32_t points);

/**
 * Frees a processing. Cannot fail. The configuration that it was created from has already been destroyed.
 *
 * @param processing  the processing; null is allowed and does nothing
 */
void zet_processing_destroy(zet_processing_t *processing);

#ifdef __cplusplus
}
#endif

#endif
