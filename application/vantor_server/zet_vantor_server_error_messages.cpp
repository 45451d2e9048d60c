/** @file
 * The messages that the server sends to the host when something fails.
 */
#include "zet_vantor_server_error_messages.h"

const char *const error_json_parse_str =
    "Make every element of \"calibration_info\" an object with \"sensor_id\" and \"data\".";

const char *const error_send_data_str =
    "The frame was measured but its message could not be built: configure fewer group items, because memory "
    "is short.";

const char *const error_missing_config =
    "Give every group item a \"config\" that is an object; {} stands for the defaults.";

const char *const error_bad_config =
    "Use only known keys, each once and with a value of the right type, in \"config\", in the objects of "
    "\"subsweeps\" and in \"cpd_overrides\".";

const char *const error_config_faulty_update_rate_str =
    "Make \"max_update_rate\" (or \"update_rate\") a number of updates per second, or leave it out.";

const char *const error_config_faulty_log_settings_str =
    "Set \"enable_log\" to \"ERROR\", \"WARNING\", \"INFO\", \"VERBOSE\" or \"DEBUG\", or leave it out.";

const char *const error_config_groups_str = "Give at most 10 groups in \"groups\".";

const char *const error_config_group_items_str =
    "Give each group at most as many items as the board has sensors; put the others into a further group.";

const char *const error_config_sensor_id_str =
    "Set \"sensor_id\" to the number of a sensor of this board, counted from 1; a group item needs one that "
    "is connected.";

const char *const error_config_calibration_data_str =
    "Set \"data\" of a calibration to the 480 hexadecimal digits that the server reported for that sensor, "
    "or leave the calibration out to have the sensor calibrated anew.";

const char *const error_config_calibration_list =
    "Make \"calibration_info\" an array with at least one calibration, or leave it out.";

const char *const error_config_max_update_rate_with_frame_rate_str =
    "Give either \"frame_rate\" in a \"config\" or \"max_update_rate\" (or \"update_rate\"), not both.";

const char *const error_config_multiple_groups_with_frame_rate_str =
    "Leave \"frame_rate\" out when there are several groups (\"max_update_rate\" paces them), or put all "
    "items into one group.";

const char *const error_double_subsweep_config =
    "Put the keys of a sub-sweep either into \"config\" itself or into the objects of \"subsweeps\", not "
    "both.";

const char *const error_too_many_subsweeps = "Give at most 4 objects in \"subsweeps\".";

const char *const error_invalid_inter_frame_idle_state =
    "Set \"inter_frame_idle_state\" to \"deep_sleep\", \"sleep\" or \"ready\".";

const char *const error_invalid_inter_sweep_idle_state =
    "Set \"inter_sweep_idle_state\" to \"deep_sleep\", \"sleep\" or \"ready\".";

const char *const error_invalid_prf = "Set \"prf\" to \"19_5_MHz\", \"15_6_MHz\", \"13_0_MHz\", "
                                      "\"8_7_MHz\", \"6_5_MHz\" or \"5_2_MHz\".";

const char *const error_nox_create_sensor_str =
    "A sensor did not answer after it was powered on: check that it is seated, or leave it out of "
    "\"groups\".";

const char *const error_nox_get_buffer_size_str =
    "The sensor library refused a \"config\": check that every value is within its range and that the "
    "values agree; the log names the one at fault.";

const char *const error_nox_create_processing_str =
    "The processing of a \"config\" could not be created: reduce \"num_points\" or \"sweeps_per_frame\", "
    "because memory is short.";

const char *const error_nox_sensor_calibration_str =
    "A sensor could not be calibrated: check its supply and interrupt line, keep interferers away and "
    "configure again.";

const char *const error_nox_data_str =
    "A sensor failed to prepare, measure, signal or deliver a frame: the log names it; check its supply and "
    "interrupt line and configure again.";

const char *const error_out_of_memory =
    "Memory is exhausted: use fewer groups, items or points, or a shorter command.";
