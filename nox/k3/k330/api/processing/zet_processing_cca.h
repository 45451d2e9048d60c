/** @file
 * Clear-channel assessment of a measured frame. The rules in zet_processing.h apply here too: called on the
 * server's only thread, never from an interrupt; blocks only for its calculations.
 */
#ifndef ZET_PROCESSING_CCA_H
#define ZET_PROCESSING_CCA_H

#include <stdbool.h>

#include "zet_processing.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Computes the strength of interfering signals in a frame. Called once for each frame whose configuration has
 * the clear-channel measurement enabled, between zet_sensor_read and zet_processing_execute.
 *
 * @param processing  the processing of the frame's configuration
 * @param buffer      a buffer filled by zet_sensor_read; not changed
 * @param cca_value   receives the value, at most 0 for a clear channel and larger with stronger
 *                    interference; unchanged on failure
 * @return false when the frame contains no clear-channel measurement; the frame is not processed then
 */
bool zet_processing_cca_check(const zet_processing_t *processing, const void *buffer, float *cca_value);

#ifdef __cplusplus
}
#endif

#endif
