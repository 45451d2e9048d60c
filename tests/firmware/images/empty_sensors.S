/* A sensor library whose functions are all the same empty one, to measure the size of everything else. */
    .syntax unified
    .thumb
    .text
    .irp name, \
      zet_config_continuous_sweep_mode_set, zet_config_create, zet_config_destroy, \
      zet_config_double_buffering_set, zet_config_enable_cca_set, zet_config_enable_tx_set, \
      zet_config_frame_rate_get, zet_config_frame_rate_set, zet_config_inter_frame_idle_state_set, \
      zet_config_inter_sweep_idle_state_set, zet_config_num_subsweeps_get, zet_config_num_subsweeps_set, \
      zet_config_subsweep_enable_loopback_set, zet_config_subsweep_enable_tx_set, \
      zet_config_subsweep_hwaas_set, zet_config_subsweep_iq_imbalance_compensation_set, \
      zet_config_subsweep_num_points_set, zet_config_subsweep_phase_enhancement_set, \
      zet_config_subsweep_prf_set, zet_config_subsweep_profile_set, \
      zet_config_subsweep_receiver_gain_set, zet_config_subsweep_start_point_set, \
      zet_config_subsweep_step_length_set, zet_config_subtract_in_buffer_set, zet_config_sweep_rate_get, \
      zet_config_sweep_rate_set, zet_config_sweeps_per_frame_get, zet_config_sweeps_per_frame_set, \
      zet_diagnostic_log_enable, zet_nox_get_buffer_size, zet_nox_hal_register, zet_nox_set_log_level, \
      zet_probes_register_callback, zet_processing_cca_check, zet_processing_create, \
      zet_processing_destroy, zet_processing_execute, zet_processing_points_to_meter, \
      zet_sensor_calibrate, zet_sensor_connected, zet_sensor_create, zet_sensor_destroy, \
      zet_sensor_get_cal_info, zet_sensor_measure, zet_sensor_prepare, zet_sensor_read, \
      zet_sensor_status, zet_sensor_validate_calibration
    .global \name
    .thumb_func
\name:
    .endr
    movs r0, #1
    bx lr
