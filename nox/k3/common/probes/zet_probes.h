/** @file
 * Probes: places inside the sensor library where a registered callback can read and change the library's
 * data.
 *
 * Registration and callback run on the server's only thread, never in an interrupt. The server registers for
 * ZET_PROBE_ID_MEAS_SESSION_PARAMETERS only.
 */
#ifndef ZET_PROBES_H
#define ZET_PROBES_H

#include <stdbool.h>
#include <stdint.h>

#include "zet_definitions_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The places at which the library can call back. */
ZET_BYTE_ENUM(zet_probe_id_t){
    ZET_PROBE_ID_ADC_OUTPUT_DATA = 0,
    ZET_PROBE_ID_ADC_OUTPUT_DATA_CCA,
    ZET_PROBE_ID_ADC_OUTPUT_DATA_STITCHED,
    ZET_PROBE_ID_ADC_OUTPUT_DATA_REORDERED,
    ZET_PROBE_ID_ADC_OUTPUT_PILOT,
    ZET_PROBE_ID_SENSOR_BUFFER_REPRESENTATION,
    ZET_PROBE_ID_SENSOR_CALIBRATION_CBANK_DATA,
    ZET_PROBE_ID_SENSOR_CALIBRATION_DLY_DAC_LOW_DATA,
    ZET_PROBE_ID_SENSOR_CALIBRATION_DLY_DAC_HIGH_DATA,
    ZET_PROBE_ID_SENSOR_CALIBRATION_AREA_DATA,
    ZET_PROBE_ID_SENSOR_CALIBRATION_RX_FINE_DIP_DATA,
    ZET_PROBE_ID_SENSOR_CALIBRATION_BEGIN,
    ZET_PROBE_ID_SENSOR_CALIBRATION_END,
    ZET_PROBE_ID_SENSOR_MARGIN_DATA,
    ZET_PROBE_ID_SENSOR_METADATA,
    ZET_PROBE_ID_SENSOR_MISSED_DATA,
    ZET_PROBE_ID_SERVICE_INTERNAL_RESULT_INFO,
    ZET_PROBE_ID_SERVICE_MISSED_DATA,
    ZET_PROBE_ID_SERVICE_PROFILE_PARAMETERS,
    ZET_PROBE_ID_SWEEP_HEADER_LENGTH,
    /** The measurement-session parameter block (zet_cpd_k330_meas_session_generated.h). Fires once in every
     * zet_sensor_prepare whose arguments are valid, and nowhere else. */
    ZET_PROBE_ID_MEAS_SESSION_PARAMETERS = 20,
    ZET_PROBE_ID_SWEEP_SETTINGS_SPARSE,
    ZET_PROBE_ID_SWEEP_SETTINGS_LINEAR,
    ZET_PROBE_ID_SWEEP_SETTINGS_STAGGERED,
    /** Number of probes; not a probe itself. */
    ZET_PROBE_ID_MAX = 24,
};

/** The probe and the sensor for which a callback is called. */
typedef struct
{
    zet_probe_id_t probe_id;   /**< the probe that fired */
    zet_sensor_id_t sensor_id; /**< the sensor for which it fired */
    uint32_t data_type;        /**< the library's number of the data's type */
} zet_probes_header_t;

/**
 * A probe callback that may change the data.
 *
 * Called synchronously: the library function in which the probe fires continues after the callback, with the
 * data that the callback has left. The callback must not block or call the library.
 *
 * @param header            which probe fired; valid during the call
 * @param data              the probe's data, aligned for their type, owned by the library, valid during the
 *                          call
 * @param data_size         size of @p data in bytes; for the parameter block at least the size of its type
 * @param client_reference  the pointer given at registration
 * @return true when the data may be used (the server's callback always returns true); with false the library
 *         function fails
 */
typedef bool zet_probes_callback_rw_t(const zet_probes_header_t *header, void *data, uint32_t data_size,
                                      void *client_reference);

/**
 * Registers the callback of one probe. There is one registration per probe, for all sensors; a new
 * registration replaces it. Cannot fail, does not block. Called after zet_nox_hal_register.
 *
 * The server registers again before every zet_sensor_prepare, and removes nothing at the end of a session.
 * A registration can therefore outlive what its reference points to: the library must not use it before the
 * next zet_sensor_prepare, in particular not in a calibration.
 *
 * @param probe_id          the probe, below ZET_PROBE_ID_MAX
 * @param callback          the callback, or null to remove the registration
 * @param client_reference  passed to the callback unchanged; may be null
 */
void zet_probes_register_callback(zet_probe_id_t probe_id, zet_probes_callback_rw_t *callback,
                                  void *client_reference);

#ifdef __cplusplus
}
#endif

#endif
