/** @file
 * Processing: from the sensor's own form of a frame to complex samples.
 *
 * All functions are called by the server's one thread, never by an interrupt, and none while another one
 * runs. They need no sensor, transfer nothing and block for their calculations only.
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

/** Layout of the frames that a configuration yields. All lengths and offsets count complex samples. */
typedef struct
{
    uint16_t frame_data_length;                           /**< samples of a frame */
    uint16_t sweep_data_length;                           /**< samples of a sweep */
    uint16_t subsweep_data_offset[ZET_MAX_NUM_SUBSWEEPS]; /**< where each sub-sweep starts in a sweep */
    uint16_t subsweep_data_length[ZET_MAX_NUM_SUBSWEEPS]; /**< samples of each sub-sweep */
    float max_sweep_rate;                                 /**< highest sweep rate, in hertz */
    bool high_speed_mode;                                 /**< measured in the high-speed mode */
} zet_processing_metadata_t;

/** One processed frame. */
typedef struct
{
    bool data_saturated;        /**< a sample reached the end of the scale */
    bool frame_delayed;         /**< started or read too late to keep the frame rate */
    bool calibration_needed;    /**< the temperature has moved too far from that of the calibration */
    int16_t temperature;        /**< in degrees Celsius, for comparison with other frames, not absolute */
    zet_int16_complex_t *frame; /**< the samples, in the buffer handed in; valid until it is used again */
} zet_processing_result_t;

/**
 * Creates the processing of a configuration. Called once for each configuration, before the first frame.
 *
 * @param config    the configuration; read during the call only, and may be destroyed before the processing
 * @param metadata  receives the frame layout, which holds for every frame of the configuration
 * @return the processing, owned by the caller, to be destroyed by zet_processing_destroy; null when the
 *         configuration is not valid or memory is exhausted
 */
zet_processing_t *zet_processing_create(const zet_config_t *config, zet_processing_metadata_t *metadata);

/**
 * Processes a frame in place. Called once for each frame, after zet_sensor_read and
 * zet_processing_cca_check. Cannot report a failure: zet_sensor_read must not succeed with a frame that
 * cannot be processed.
 *
 * The server sends the samples to the host after it has read the sensors of all groups. They stay valid
 * until the buffer is handed to zet_sensor_prepare or zet_sensor_read again.
 *
 * @param processing  the processing made from the configuration that was measured with
 * @param buffer      a buffer filled by zet_sensor_read
 * @param result      receives the flags and where in @p buffer the samples lie: as many as the
 *                    frame_data_length of the metadata
 */
void zet_processing_execute(zet_processing_t *processing, void *buffer, zet_processing_result_t *result);

/**
 * Converts a number of points into a distance. Cannot fail; the same in every session.
 *
 * @param points  number of base steps
 * @return the distance in metres
 */
float zet_processing_points_to_meter(int32_t points);

/**
 * Frees a processing. Cannot fail. The configuration that it was made from has been destroyed before.
 *
 * @param processing  the processing; null is allowed and does nothing
 */
void zet_processing_destroy(zet_processing_t *processing);

#ifdef __cplusplus
}
#endif

#endif
