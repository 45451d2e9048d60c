/** @file
 * Clear-channel assessment of a measured frame.
 */
#ifndef ZET_PROCESSING_CCA_H
#define ZET_PROCESSING_CCA_H

#include <stdbool.h>

#include "zet_processing.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Computes how much foreign signal a frame holds. To be called before zet_processing_execute, with a
 * configuration that has the clear-channel measurement enabled.
 *
 * @param processing  the processing of the frame's configuration
 * @param buffer      a buffer filled by zet_sensor_read
 * @param cca_value   receives the value, 0 for a clear channel and larger with more foreign signal;
 *                    unchanged on failure
 * @return false when the frame carries no clear-channel measurement
 */
bool zet_processing_cca_check(const zet_processing_t *processing, const void *buffer, float *cca_value);

#ifdef __cplusplus
}
#endif

#endif
