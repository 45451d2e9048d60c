/** @file
 * The signal of a sub-sweep, computed from its configuration.
 *
 * Distances are counted in base steps of 2.5 mm. The carrier's wavelength is two base steps, and an echo
 * travels the distance twice, so its phase makes one turn per base step of distance:
 *
 *     phase = 2 pi (2 d / wavelength) = 4 pi d / wavelength
 *
 * A target that moves away turns the phase forward; at speed v the phase turns at the Doppler frequency
 * 2 v / wavelength (M. Skolnik, "Introduction to Radar Systems", section 3.1).
 *
 * Pulse: transmitted pulse and receiver window are bell curves of durations T_t and T_r. The receiver
 * integrates their product, so the response over distance is their correlation: a bell curve whose width is
 * sqrt(T_t^2 + T_r^2) (variances add) and whose height is proportional to T_t T_r / sqrt(T_t^2 + T_r^2).
 *
 * Noise: the energy of white noise in a window is proportional to T_r, so its amplitude is proportional to
 * sqrt(T_r). The mean of n pulses has 1 / sqrt(n) of the noise of one.
 */
#ifndef ZET_SIMULATOR_SIGNAL_H
#define ZET_SIMULATOR_SIGNAL_H

#include "sensor_library/parameter_block.h"

namespace zet_simulator
{

/** Length of a base step, in metres. */
constexpr double meters_per_step = 0.0025;

/** Returns the distance whose echo arrives just before the next pulse, c / (2 PRF), in base steps. */
constexpr double unambiguous_steps(uint16_t burst_period)
{
    const double speed_of_light = 299792458.0;
    return speed_of_light * burst_period / (2.0 * burst_clock_hz * meters_per_step);
}

/** Distance of the sidelobes, in widths of the response at half height. */
constexpr float sidelobe_widths = 2.0F;

/** What a sub-sweep measures and how; computed once per prepare. */
struct subsweep_signal
{
    int32_t start_point;
    uint16_t num_points;
    uint16_t step_length;
    bool transmits;
    bool loops_back;             /**< receives the transmitter directly instead of the antenna */
    bool phase_enhancement;      /**< the phase error of the delay line is removed */
    bool imbalance_compensation; /**< the receiver's imbalance is removed */
    float echo_amplitude;        /**< of 1 square metre at 1 metre, in units of the scale */
    float half_width;            /**< from the middle of the response to its end, in base steps */
    float sidelobe_spacing;      /**< from the middle of the response to that of a sidelobe, in base steps */
    float noise_of_mean;      /**< deviation of the mean of all pulses of a point, relative to that of one */
    float receiver_noise;     /**< variance of the receiver's noise, per part of a sample */
    float converter_noise;    /**< variance of the converter's noise, per part of a sample */
    double unambiguous_steps; /**< an echo from farther away arrives after the next pulse */
};

/** Steps of the frequency control in the nominal carrier frequency: one step moves it by 1/8192. */
constexpr double frequency_control_steps = 8192.0;

/** Values for the complete frame. */
struct frame_signal
{
    double tx_frequency;  /**< of the transmitter, as a multiple of the nominal carrier */
    double rx_frequency;  /**< of the receiver */
    double delay_steps;   /**< by which echoes come late, in base steps */
    float gain;           /**< factor of all echoes */
    float sidelobe_level; /**< amplitude of a sidelobe, relative to its echo */
    float ringing_level;  /**< amplitude at which the leakage begins to ring, relative to the leakage */
    float offset;         /**< the receiver's constant offset, in units of the scale */
    int32_t upper_limit;  /**< end of the scale */
    int32_t lower_limit;  /**< the other end */
};

/**
 * Computes the values for the complete frame of an ideal sensor, with nominal frequencies.
 *
 * @param subtracts  whether every other measurement is subtracted in the sensor's buffer, which removes the
 *                   offset
 */
frame_signal frame_signal_of(const parameter_block &block, bool subtracts);

/**
 * Computes the signal of a sub-sweep.
 *
 * @param subsweep    gives the points
 * @param parameters  the words that control the sensor
 * @param detuning    the transmitter's frequency minus the receiver's, in steps of the frequency control
 */
subsweep_signal signal_of(const subsweep_config &subsweep, const subsweep_parameters &parameters,
                          int32_t detuning);

} // namespace zet_simulator

#endif
