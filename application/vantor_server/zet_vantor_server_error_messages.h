/** @file
 * The messages that the server sends to the host when something fails: each says what to change.
 *
 * They are reported by pointer and never copied.
 */
#ifndef ZET_VANTOR_SERVER_ERROR_MESSAGES_H
#define ZET_VANTOR_SERVER_ERROR_MESSAGES_H

#ifdef __cplusplus
extern "C" {
#endif

/** A calibration entry could not be read. */
extern const char *const error_json_parse_str;
/** The frame could not be sent. */
extern const char *const error_send_data_str;
/** A group item has no configuration object. */
extern const char *const error_missing_config;
/** A configuration or override object has a member that is unknown, repeated or of the wrong type. */
extern const char *const error_bad_config;
/** The update rate is not a number. */
extern const char *const error_config_faulty_update_rate_str;
/** The log level is not one of the known words. */
extern const char *const error_config_faulty_log_settings_str;
/** There are more groups than the server has room for. */
extern const char *const error_config_groups_str;
/** A group has more items than the board has sensors. */
extern const char *const error_config_group_items_str;
/** A sensor number is missing, out of range or names an absent sensor. */
extern const char *const error_config_sensor_id_str;
/** Calibration data is missing, not hexadecimal or not a valid calibration. */
extern const char *const error_config_calibration_data_str;
/** The calibration list is empty or not a list. */
extern const char *const error_config_calibration_list;
/** An update rate is given together with a frame rate. */
extern const char *const error_config_max_update_rate_with_frame_rate_str;
/** A frame rate is configured in a session of several groups. */
extern const char *const error_config_multiple_groups_with_frame_rate_str;
/** Sub-sweep members are given both in the configuration and in its list of sub-sweeps. */
extern const char *const error_double_subsweep_config;
/** There are more than four sub-sweeps. */
extern const char *const error_too_many_subsweeps;
/** The idle state between frames is not one of the known words. */
extern const char *const error_invalid_inter_frame_idle_state;
/** The idle state between sweeps is not one of the known words. */
extern const char *const error_invalid_inter_sweep_idle_state;
/** The pulse repetition frequency is not one of the known words. */
extern const char *const error_invalid_prf;
/** The sensor did not answer when its handle was created. */
extern const char *const error_nox_create_sensor_str;
/** The sensor library refused the configuration. */
extern const char *const error_nox_get_buffer_size_str;
/** The processing could not be created. */
extern const char *const error_nox_create_processing_str;
/** The calibration failed. */
extern const char *const error_nox_sensor_calibration_str;
/** A sensor failed to prepare, measure, signal or deliver its data. */
extern const char *const error_nox_data_str;
/** Memory is exhausted. */
extern const char *const error_out_of_memory;

#ifdef __cplusplus
}
#endif

#endif
