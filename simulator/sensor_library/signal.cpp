/** @file
 * Computes the signal from a configuration and the sensor's parameters: amplitudes, widths, noise.
 */
#include "sensor_library/signal.h"

#include <algorithm>
#include <cmath>

namespace
{

using namespace zet_simulator;

/** Settings at which the values below apply. */
constexpr uint16_t reference_gain = 16;
constexpr float reference_duration = 14.0F;

/** Amplitude of 1 square metre at 1 metre, at the reference settings, in units of the scale. */
constexpr float reference_amplitude = 8000.0F;

/** Noise of one pulse, at the reference settings, in units of the scale. */
constexpr float reference_noise = 150.0F;
constexpr float converter_noise = 10.0F;

/** Constant offset of the receiver, in units of the scale. */
constexpr float receiver_offset = 5.0F;

/** One step of the receiver gain is a decibel: 10^(1/20). */
constexpr float gain_step = 1.1220184543F;

/** Highest gain control of the amplifier; a higher one has the same effect. */
constexpr uint16_t highest_gain = 31;

/** Base steps that a pulse covers per cycle of its duration: the pulse clock is a quarter of the carrier. */
constexpr float steps_per_cycle = 4.0F;

/** Returns the amplification of a gain control relative to that of the reference gain. */
float gain_of(uint16_t control)
{
    const uint16_t limited = std::min(control, highest_gain);
    float gain = 1.0F;
    for (uint16_t step = reference_gain; step < limited; ++step)
    {
        gain *= gain_step;
    }
    for (uint16_t step = limited; step < reference_gain; ++step)
    {
        gain /= gain_step;
    }
    return gain;
}

/** Returns the height of the response: T_t T_r / sqrt(T_t^2 + T_r^2), 0 for a missing pulse. */
float overlap_of(float tx_duration, float rx_duration)
{
    const float width = std::sqrt(tx_duration * tx_duration + rx_duration * rx_duration);
    return width > 0.0F ? tx_duration * rx_duration / width : 0.0F;
}

/**
 * Returns the factor by which a frequency difference between transmitter and receiver reduces the response:
 * the Fourier transform of the overlap of the two bells at the difference, exp(-(pi df T)^2 / (4 ln 2)).
 */
float detuning_factor(int32_t detuning, float overlap)
{
    const float turns = static_cast<float>(detuning) * steps_per_cycle * overlap /
                        static_cast<float>(frequency_control_steps);
    const float pi_squared_over_four_ln_two = 3.5597073F;
    return std::exp(-turns * turns * pi_squared_over_four_ln_two);
}

} // namespace

namespace zet_simulator
{

frame_signal frame_signal_of(const parameter_block &block, bool subtracts)
{
    frame_signal frame = {};
    frame.tx_frequency = 1.0;
    frame.rx_frequency = 1.0;
    frame.gain = 1.0F;
    frame.offset = subtracts ? 0.0F : receiver_offset;
    frame.upper_limit = static_cast<int16_t>(block.bufsat_upper_limit);
    frame.lower_limit = static_cast<int16_t>(block.bufsat_lower_limit);
    return frame;
}

subsweep_signal signal_of(const subsweep_config &subsweep, const subsweep_parameters &parameters,
                          int32_t detuning)
{
    const float tx_duration = parameters.pulse_length.tx_duration;
    const float rx_duration = parameters.pulse_length.rx_duration;
    const float overlap = overlap_of(tx_duration, rx_duration);
    const float gain = gain_of(parameters.vga_ctrl);
    const float integrator =
        static_cast<float>(parameters.integrator_ctrl) / static_cast<float>(unity_integrator_ctrl);
    const float repeats =
        parameters.integration_repeats > 0U ? static_cast<float>(parameters.integration_repeats) : 1.0F;
    const float noise = reference_noise * gain * integrator;
    const float width = steps_per_cycle * std::sqrt(tx_duration * tx_duration + rx_duration * rx_duration);
    // 1 / (2 sqrt(1 - 2^(-1/8))).
    const float half_width_of_full_width = 1.7355679F;

    subsweep_signal signal = {};
    signal.start_point = subsweep.start_point;
    signal.num_points = subsweep.num_points;
    signal.step_length = subsweep.step_length;
    signal.transmits = parameters.tx_en != 0U && overlap > 0.0F;
    signal.loops_back = parameters.tor_en != 0U;
    signal.phase_enhancement = subsweep.phase_enhancement;
    signal.imbalance_compensation = subsweep.iq_imbalance_compensation;
    signal.echo_amplitude = reference_amplitude * gain * integrator * overlap /
                            overlap_of(reference_duration, reference_duration) *
                            detuning_factor(detuning, overlap);
    signal.half_width = width * half_width_of_full_width;
    signal.sidelobe_spacing = sidelobe_widths * width;
    signal.noise_of_mean = 1.0F / std::sqrt(repeats);
    signal.receiver_noise = noise * noise * rx_duration / reference_duration / repeats;
    signal.converter_noise = converter_noise * converter_noise * integrator * integrator / repeats;
    signal.unambiguous_steps = zet_simulator::unambiguous_steps(
        parameters.burst_period > 0U ? parameters.burst_period : uint16_t{1});
    return signal;
}

} // namespace zet_simulator
