/** @file
 * Synthesis of the samples of a sub-sweep.
 *
 * Processes points in blocks that fit on the stack; loops over a block have no branches or calls, so that the
 * compiler can vectorise them.
 */
#include "sensor_library/synthesis.h"

#include <algorithm>
#include <cmath>

#include "common/trigonometry.h"
#include "sensor_library/hardware.h"

namespace
{

using namespace zet_simulator;

/** Points in a block; a multiple of the noise lanes. */
constexpr uint32_t block_size = 64;
static_assert(block_size % noise_source::lanes == 0, "noise is filled in multiples of the lanes");

/** Imbalance of the receiver's paths: gain of the in-phase part, and its leakage into the quadrature part. */
constexpr float imbalance_gain = 1.015F;
constexpr float imbalance_skew = 0.0087F;

/** Complex values of a block of points. */
struct block
{
    float real[block_size];
    float imag[block_size];
};

/** Returns the response to one pulse: (1 - x^2)^8 is a bell curve that ends at x = 1. */
inline float bell_at(float offset, float scale)
{
    const float inside = 1.0F - offset * offset * scale;
    const float base = inside > 0.0F ? inside : 0.0F;
    const float squared = base * base;
    const float fourth = squared * squared;
    return fourth * fourth;
}

/** Adds the response to one pulse. */
void add_response(const echo &echo, float start, float step, float half_width, block &values, uint32_t count)
{
    const float scale = 1.0F / (half_width * half_width);
    for (uint32_t i = 0; i < count; ++i)
    {
        const float offset = start + step * static_cast<float>(static_cast<int32_t>(i));
        const float bell = bell_at(offset, scale);
        values.real[i] += echo.real * bell;
        values.imag[i] += echo.imag * bell;
    }
}

/**
 * Adds an echo to a block. Each pulse sent so far causes a response, and those of earlier pulses are nearer
 * by the unambiguous distance each.
 */
void add_echo(const echo &echo, const subsweep_signal &subsweep, float first, block &values, uint32_t count)
{
    const float step = subsweep.step_length;
    const float half_width = subsweep.half_width;
    const auto distance = static_cast<float>(subsweep.unambiguous_steps);
    const float end = first + step * static_cast<float>(count) + half_width;
    const auto centre_of = [&](int32_t lap) { return echo.centre + distance * static_cast<float>(lap); };
    int32_t lap = 0;
    while (lap < echo.laps && centre_of(lap + 1) < end)
    {
        ++lap;
    }
    for (; centre_of(lap) + half_width > first; --lap)
    {
        if (centre_of(lap) < end)
        {
            add_response(echo, first - centre_of(lap), step, half_width, values, count);
        }
    }
}

/** Returns a whole power of a number. */
float power_of(float base, uint32_t exponent)
{
    float result = 1.0F;
    for (; exponent > 0U; exponent >>= 1U)
    {
        result *= (exponent & 1U) != 0U ? base : 1.0F;
        base *= base;
    }
    return result;
}

/**
 * Adds the ringing of the leakage: the antenna is a resonator, in which an oscillation decays with exp(-2 pi
 * d / (Q wavelength)) over the distance that an echo needs the same time for (D. Pozar, "Microwave
 * Engineering", section 6.1). It has its full amplitude where the leakage has almost ended, one width of the
 * response away.
 */
void add_ringing(const frame_signal &frame, const subsweep_signal &subsweep, const echo &leakage,
                 uint32_t first, block &values, uint32_t count)
{
    // exp(-pi / Q) with Q = 100: an amplitude of 1/e after 32 base steps.
    const float decay_per_step = 0.9690724F;
    const int32_t inaudible_steps = 500;
    const auto step = static_cast<int32_t>(subsweep.step_length);
    const float decay = power_of(decay_per_step, subsweep.step_length);
    const float scale = 1.0F / (subsweep.half_width * subsweep.half_width);
    const auto full_at = static_cast<int32_t>(subsweep.sidelobe_spacing / sidelobe_widths);
    const int32_t start = static_cast<int32_t>(first) * step;
    // From the middle of the leakage.
    const int32_t nearest = start - static_cast<int32_t>(leakage.centre);
    if (nearest > full_at + inaudible_steps)
    {
        return;
    }
    float level = frame.ringing_level;
    if (nearest > full_at)
    {
        level *= power_of(decay_per_step, static_cast<uint32_t>(nearest - full_at));
    }
    for (uint32_t i = 0; i < count; ++i)
    {
        const int32_t point = nearest + static_cast<int32_t>(i) * step;
        const float height = point > 0 ? level * (1.0F - bell_at(static_cast<float>(point), scale)) : 0.0F;
        values.real[i] += leakage.real * height;
        values.imag[i] += leakage.imag * height;
        level *= point >= full_at ? decay : 1.0F;
    }
}

/** Rotates each value of a block back by a phase. */
void rotate_back(const binary_angle *phases, block &values, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i)
    {
        float sine = 0.0F;
        float cosine = 0.0F;
        sine_and_cosine_of(phases[i], sine, cosine);
        const float real = values.real[i] * cosine + values.imag[i] * sine;
        const float imag = values.imag[i] * cosine - values.real[i] * sine;
        values.real[i] = real;
        values.imag[i] = imag;
    }
}

/**
 * Computes the receiver's phase at the points of a block: the phase of its oscillator, which is a multiple of
 * full turns at the nominal carrier, plus the error of the delay line, which starts at 0 in each of its
 * cells.
 */
void phases_of(const frame_signal &frame, const subsweep_signal &subsweep, uint32_t first,
               binary_angle *phases, uint32_t count)
{
    const int32_t point = subsweep.start_point + static_cast<int32_t>(first * subsweep.step_length);
    binary_angle phase = phase_from_turns(frame.rx_frequency * point);
    const binary_angle phase_step = phase_from_turns(frame.rx_frequency * subsweep.step_length);
    const binary_angle error_per_step = subsweep.phase_enhancement ? 0U : delay_error_per_step;
    const uint32_t cell_step = subsweep.step_length % static_cast<uint32_t>(delay_cell);
    auto cell = static_cast<uint32_t>((point % delay_cell + delay_cell) % delay_cell);
    for (uint32_t i = 0; i < count; ++i)
    {
        phases[i] = phase + cell * error_per_step;
        phase += phase_step;
        cell += cell_step;
        cell -= cell >= static_cast<uint32_t>(delay_cell) ? static_cast<uint32_t>(delay_cell) : 0U;
    }
}

/** Rounds a value, limited to somewhat more than the scale. */
int32_t convert(float value)
{
    const float beyond = 40000.0F;
    const float limited = std::clamp(value, -beyond, beyond);
    return static_cast<int32_t>(limited + (limited < 0.0F ? -0.5F : 0.5F));
}

/** Converts a block into samples; true when one reached the end of the scale. */
bool store(const frame_signal &frame, const block &values, zet_int16_complex_t *samples, uint32_t count)
{
    const int32_t upper = frame.upper_limit;
    const int32_t lower = frame.lower_limit;
    int32_t saturated = 0;
    for (uint32_t i = 0; i < count; ++i)
    {
        const int32_t real = convert(values.real[i]);
        const int32_t imag = convert(values.imag[i]);
        saturated |= static_cast<int32_t>(real >= upper) | static_cast<int32_t>(real <= lower) |
                     static_cast<int32_t>(imag >= upper) | static_cast<int32_t>(imag <= lower);
        samples[i] = {static_cast<int16_t>(std::clamp(real, lower, upper)),
                      static_cast<int16_t>(std::clamp(imag, lower, upper))};
    }
    return saturated != 0;
}

/** Adds noise, the receiver's offset and the imbalance of its paths. */
void add_receiver(const frame_signal &frame, const subsweep_signal &subsweep, float noise_amplitude,
                  noise_source &noise, block &values, uint32_t count)
{
    float noise_real[block_size];
    float noise_imag[block_size];
    const size_t padded_count =
        (count + noise_source::lanes - 1U) / noise_source::lanes * noise_source::lanes;
    noise_fill(noise, noise_real, noise_imag, padded_count);
    const float gain = subsweep.imbalance_compensation ? 1.0F : imbalance_gain;
    const float skew = subsweep.imbalance_compensation ? 0.0F : imbalance_skew;
    for (uint32_t i = 0; i < count; ++i)
    {
        const float real = values.real[i] + noise_amplitude * noise_real[i];
        const float imag = values.imag[i] + noise_amplitude * noise_imag[i];
        values.real[i] = gain * real + frame.offset;
        values.imag[i] = imag + skew * real - frame.offset;
    }
}

} // namespace

namespace zet_simulator
{

float noise_amplitude_of(const subsweep_signal &subsweep, float interference)
{
    const float heard = subsweep.loops_back ? 0.0F : interference;
    return std::sqrt(subsweep.receiver_noise * (1.0F + heard) + subsweep.converter_noise);
}

bool synthesis_measure(const frame_signal &frame, const subsweep_signal &subsweep, const view &view,
                       noise_source &noise, zet_int16_complex_t *samples)
{
    echo echoes[max_echoes];
    const uint32_t echo_count = echoes_collect(frame, subsweep, view, echoes);
    const float noise_amplitude = noise_amplitude_of(subsweep, hardware_interference(view));
    const bool turns = !subsweep.phase_enhancement || frame.rx_frequency != 1.0;
    const bool rings = frame.ringing_level > 0.0F && echo_count > 0U && !subsweep.loops_back;
    bool saturated = false;
    for (uint32_t first = 0; first < subsweep.num_points; first += block_size)
    {
        const uint32_t left = subsweep.num_points - first;
        const uint32_t count = std::min(left, block_size);
        const auto first_step = static_cast<float>(first * subsweep.step_length);
        block values = {};
        for (uint32_t i = 0; i < echo_count; ++i)
        {
            add_echo(echoes[i], subsweep, first_step, values, count);
        }
        if (rings)
        {
            add_ringing(frame, subsweep, echoes[0], first, values, count);
        }
        if (turns && echo_count > 0U)
        {
            binary_angle phases[block_size];
            phases_of(frame, subsweep, first, phases, count);
            rotate_back(phases, values, count);
        }
        add_receiver(frame, subsweep, noise_amplitude, noise, values, count);
        saturated |= store(frame, values, samples + first, count);
    }
    return saturated;
}

float synthesis_listen(const view &view, noise_source &noise)
{
    constexpr uint32_t listen_count = 256;
    // More than five standard deviations of the mean power of this many complex numbers.
    const float reach_of_noise = 0.35F;
    float power = 0.0F;
    for (uint32_t i = 0; i < listen_count; i += block_size)
    {
        block values;
        noise_fill(noise, values.real, values.imag, block_size);
        for (uint32_t j = 0; j < block_size; ++j)
        {
            power += values.real[j] * values.real[j] + values.imag[j] * values.imag[j];
        }
    }
    const float own = power / static_cast<float>(2U * listen_count);
    const float heard = own * (1.0F + hardware_interference(view));
    return heard - 1.0F - reach_of_noise;
}

} // namespace zet_simulator
