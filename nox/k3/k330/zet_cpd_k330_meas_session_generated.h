/** @file
 * The measurement-session parameter block: the values that the sensor library computes from a
 * configuration and loads into the sensor when it prepares a measurement.
 *
 * Every value is an unsigned 16-bit word; the block is 452 bytes long.
 */
#ifndef ZET_CPD_K330_MEAS_SESSION_GENERATED_H
#define ZET_CPD_K330_MEAS_SESSION_GENERATED_H

#include <stddef.h>
#include <stdint.h>

/** Number of sub-sweeps in the block. */
#define ZET_CPD_K330_MEAS_SESSION_SUBSWEEPS 4

/** Values from the calibration of the sensor. */
typedef struct
{
    uint16_t pll_mmd_range;
    uint16_t pll_mmd_a;
    uint16_t pll_mmd_b;
    uint16_t pll_cpmp_ictrl_value;
    uint16_t vco_cbank_value;
    uint16_t vco_bias_value;
    uint16_t delay_cbank_value;
    uint16_t vfast2_ldo_on_level;
    uint16_t rx_freq_ctrl;
    uint16_t tx_freq_ctrl;
    uint16_t thresh1;
    uint16_t thresh2;
    uint16_t area1_phase;
    uint16_t area1_rxcoarse_offset;
    uint16_t area2_phase;
    uint16_t area2_rxcoarse_offset;
    uint16_t area3_phase;
    uint16_t area3_rxcoarse_offset;
} zet_cpd_k330_meas_session_calibration_parameters_t;

/** Length of the pulses, in clock cycles, and their patterns. */
typedef struct
{
    uint16_t tx_duration;
    uint16_t rx_duration;
    uint16_t tx_sequence_15_0;
    uint16_t rx_sequence_15_0;
    uint16_t tx_sequence_extension_bits;
    uint16_t rx_sequence_extension_bits;
} zet_cpd_k330_meas_session_pulse_length_parameters_t;

/** Shape of the transmitted pulse. */
typedef struct
{
    uint16_t tx_ps_ref_ctrl;
    uint16_t tx_ps_stages_ctrl;
    uint16_t tx_ps_ref_bypass_diode_en;
    uint16_t tx_trig_ps_delay;
    uint16_t tx_trig_ps_rst_en;
    uint16_t tx_trig_ps_width;
    uint16_t tx_trig_wg_width;
    uint16_t tx_trig_wg_rst_en;
    uint16_t tx_trig_wg_width_en;
    uint16_t pa_sequence_15_0;
} zet_cpd_k330_meas_session_pulseshaper_parameters_t;

/** Values of one sub-sweep. */
typedef struct
{
    uint16_t vga_ctrl;
    uint16_t vga_bba_ctrl;
    uint16_t bba_cal_ctrl;
    uint16_t tor_en;
    zet_cpd_k330_meas_session_pulse_length_parameters_t pulse_length;
    zet_cpd_k330_meas_session_pulseshaper_parameters_t pulseshaper;
    uint16_t integration_repeats;
    uint16_t integrator_ctrl;
    uint16_t point_repeats;
    uint16_t measure_point_repeats;
    uint16_t tx_en;
    uint16_t lna1_en;
    uint16_t burst_period;
    uint16_t duty_cycle;
    uint16_t rx_coarse;
    uint16_t init_tx_coarse;
    uint16_t head_rx_fine_base;
    uint16_t tail_rx_fine_base;
    uint16_t mid_coarse_repeats;
    uint16_t first_coarse_atom_repeats;
    uint16_t mid_coarse_atom_repeats;
    uint16_t last_coarse_atom_repeats;
    uint16_t first_coarse_run;
    uint16_t mid_coarse_run;
    uint16_t last_coarse_run;
    uint16_t coarse_incr_repeats;
    uint16_t jump_0_in_lut;
    uint16_t jump_1_in_lut;
    uint16_t jump_2_in_lut;
} zet_cpd_k330_meas_session_subsweep_parameters_t;

/** The complete block. */
typedef struct
{
    zet_cpd_k330_meas_session_calibration_parameters_t calibration;
    uint16_t adc_output_format;
    uint16_t inter_frame_idle_state_sleep_en;
    uint16_t inter_frame_idle_state_deep_sleep_en;
    uint16_t frame_rate_en;
    uint16_t frame_rate_ref_clk_31_16;
    uint16_t frame_rate_ref_clk_15_0;
    uint16_t frame_rate_sync_to_sweep_en;
    uint16_t frame_double_buffer;
    uint16_t inter_sweep_idle_state_sleep_en;
    uint16_t inter_sweep_idle_state_deep_sleep_en;
    uint16_t sweep_rate_en;
    uint16_t sweep_rate_ref_clk_31_16;
    uint16_t sweep_rate_ref_clk_15_0;
    uint16_t run_subsweep[ZET_CPD_K330_MEAS_SESSION_SUBSWEEPS];
    zet_cpd_k330_meas_session_subsweep_parameters_t subsweeps[ZET_CPD_K330_MEAS_SESSION_SUBSWEEPS];
    uint16_t run_generate_probe;
    uint16_t probe_tx_en;
    uint16_t probe_tx_ps_ref_ctrl;
    uint16_t extra_probe_count;
    uint16_t disable_probe_only;
    uint16_t probe_burst_period;
    uint16_t probe_duty_cycle;
    uint16_t high_speed_mode;
    uint16_t sweep_repeats;
    uint16_t sweep_repeats_run;
    uint16_t cluster_pair_in_buf;
    uint16_t delay_1_us_ref_clk;
    uint16_t delay_4_us_ref_clk;
    uint16_t delay_300_us_ref_clk;
    uint16_t bufsat_upper_limit;
    uint16_t bufsat_lower_limit;
    uint16_t free_running_en;
    uint16_t run_cca_measurement;
    uint16_t cca_bba_cal_ctrl;
} zet_cpd_k330_meas_session_parameters_t;

#ifdef __cplusplus
#define ZET_CPD_STATIC_ASSERT static_assert
#else
#define ZET_CPD_STATIC_ASSERT _Static_assert
#endif

ZET_CPD_STATIC_ASSERT(sizeof(zet_cpd_k330_meas_session_calibration_parameters_t) == 36,
                      "calibration_parameters");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_calibration_parameters_t, rx_freq_ctrl) == 16,
                      "rx_freq_ctrl");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_calibration_parameters_t, tx_freq_ctrl) == 18,
                      "tx_freq_ctrl");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_calibration_parameters_t, area3_rxcoarse_offset) ==
                          34,
                      "area3_rxcoarse_offset");

ZET_CPD_STATIC_ASSERT(sizeof(zet_cpd_k330_meas_session_subsweep_parameters_t) == 86, "subsweep_parameters");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_subsweep_parameters_t, pulse_length) == 8,
                      "pulse_length");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_subsweep_parameters_t, pulseshaper) == 20,
                      "pulseshaper");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_subsweep_parameters_t, integration_repeats) == 40,
                      "integration_repeats");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_subsweep_parameters_t, integrator_ctrl) == 42,
                      "integrator_ctrl");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_subsweep_parameters_t, jump_2_in_lut) == 84,
                      "jump_2_in_lut");
ZET_CPD_STATIC_ASSERT(sizeof(zet_cpd_k330_meas_session_pulse_length_parameters_t) == 12,
                      "pulse_length_parameters");
ZET_CPD_STATIC_ASSERT(sizeof(zet_cpd_k330_meas_session_pulseshaper_parameters_t) == 20,
                      "pulseshaper_parameters");

ZET_CPD_STATIC_ASSERT(sizeof(zet_cpd_k330_meas_session_parameters_t) == 452, "parameters");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, calibration) == 0, "calibration");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, adc_output_format) == 36,
                      "adc_output_format");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, sweep_rate_ref_clk_15_0) == 60,
                      "sweep_rate_ref_clk_15_0");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, run_subsweep) == 62, "run_subsweep");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, subsweeps[0]) == 70, "subsweeps[0]");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, subsweeps[1]) == 156, "subsweeps[1]");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, subsweeps[2]) == 242, "subsweeps[2]");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, subsweeps[3]) == 328, "subsweeps[3]");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t,
                               subsweeps[0].pulse_length.tx_duration) == 78,
                      "subsweeps[0].pulse_length.tx_duration");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t,
                               subsweeps[0].pulse_length.rx_duration) == 80,
                      "subsweeps[0].pulse_length.rx_duration");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, subsweeps[0].integration_repeats) ==
                          110,
                      "subsweeps[0].integration_repeats");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, subsweeps[0].integrator_ctrl) == 112,
                      "subsweeps[0].integrator_ctrl");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, run_generate_probe) == 414,
                      "run_generate_probe");
ZET_CPD_STATIC_ASSERT(offsetof(zet_cpd_k330_meas_session_parameters_t, cca_bba_cal_ctrl) == 450,
                      "cca_bba_cal_ctrl");

#undef ZET_CPD_STATIC_ASSERT

#endif
