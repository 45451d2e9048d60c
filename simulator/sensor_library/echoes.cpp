/** @file
 * Echoes of targets, of the transmitter itself, and of the loopback.
 */
#include "sensor_library/echoes.h"

#include <algorithm>
#include <cmath>

#include "common/noise.h"
#include "common/trigonometry.h"

namespace
{

using namespace zet_simulator;

/** Amplitude of the direct leakage from transmitter to receiver, relative to 1 square metre at 1 metre. */
constexpr float leakage_amplitude = 2.5F;

/** Amplitude of the loopback, in the same unit. */
constexpr float loopback_amplitude = 2.0F;

/** Shortest distance at which the radar equation applies; the echo of a nearer target is not stronger. */
constexpr double near_field_m = 0.05;

static_assert(first_fluctuation_part >= 2U * noise_source::lanes, "noise and fluctuation are independent");

/** Distance beyond which nothing can be seen. */
constexpr double horizon_m = 1.0e6;

/** Returns an echo of an amplitude at a distance in base steps, which the sensor delays further. */
echo echo_at(const frame_signal &frame, const subsweep_signal &subsweep, double steps, float amplitude)
{
    const double delayed = steps + frame.delay_steps;
    const float height = amplitude * frame.gain;
    float sine = 0.0F;
    float cosine = 0.0F;
    sine_and_cosine_of(phase_from_turns(frame.tx_frequency * delayed), sine, cosine);
    const auto laps = static_cast<int32_t>(delayed / subsweep.unambiguous_steps);
    const double apparent = delayed - laps * subsweep.unambiguous_steps;
    return {static_cast<float>(apparent - subsweep.start_point), laps, height * cosine, height * sine};
}

/**
 * Adds the sidelobes of echoes. A ripple of a relative amplitude 2 a over frequency causes a pair of echoes
 * of the relative amplitude a, as far before and after the true one as the ripple's period tells (H. Wheeler,
 * "The Interpretation of Amplitude and Phase Distortion in Terms of Paired Echoes", 1939).
 *
 * @return the number of echoes with their sidelobes
 */
uint32_t add_sidelobes(const frame_signal &frame, const subsweep_signal &subsweep, echo *echoes,
                       uint32_t count)
{
    if (frame.sidelobe_level == 0.0F)
    {
        return count;
    }
    for (uint32_t i = 0; i < count; ++i)
    {
        echo lobe = echoes[i];
        lobe.real *= frame.sidelobe_level;
        lobe.imag *= frame.sidelobe_level;
        lobe.centre -= subsweep.sidelobe_spacing;
        echoes[count + 2U * i] = lobe;
        lobe.centre += 2.0F * subsweep.sidelobe_spacing;
        echoes[count + 2U * i + 1U] = lobe;
    }
    return 3U * count;
}

/**
 * Returns the ratio of a fluctuating cross-section to its mean, which is constant in a frame and independent
 * from frame to frame (P. Swerling, "Probability of Detection for Fluctuating Targets", 1954; Skolnik,
 * section 2.8): exponentially distributed, or as chi-square with four degrees of freedom, which is the mean
 * of two exponentially distributed numbers.
 */
float fluctuation_of(zet_simulator_fluctuation_t fluctuation, uint64_t key)
{
    switch (fluctuation)
    {
    case ZET_SIMULATOR_FLUCTUATION_SWERLING_1:
        return exponential_of(static_cast<uint32_t>(key));
    case ZET_SIMULATOR_FLUCTUATION_SWERLING_3:
        return (exponential_of(static_cast<uint32_t>(key)) +
                exponential_of(static_cast<uint32_t>(key >> 32U))) /
               2.0F;
    default:
        return 1.0F;
    }
}

/** Gives an echo the random strength and phase of a frame: those of many scatterers whose distances change by
 * more than a wavelength from frame to frame. */
void fluctuate(echo &echo, zet_simulator_fluctuation_t fluctuation, uint64_t key)
{
    const float factor = std::sqrt(fluctuation_of(fluctuation, key));
    float sine = 0.0F;
    float cosine = 0.0F;
    sine_and_cosine_of(static_cast<binary_angle>(scramble(key)), sine, cosine);
    const float real = echo.real;
    echo.real = factor * (real * cosine - echo.imag * sine);
    echo.imag = factor * (real * sine + echo.imag * cosine);
}

/**
 * Returns the amplitude of a target's echo.
 *
 * A surface mirrors the sensor: its echo comes from an image at twice the distance, with the power rho^2 / (2
 * d)^2, where a cross-section gives sigma / (4 pi d^4). So its cross-section is pi rho^2 d^2, and its
 * amplitude falls only with d.
 *
 * @param reference  amplitude of 1 square metre at 1 metre
 */
float amplitude_of(const zet_simulator_target_t &target, float reference, double distance_m)
{
    const double limited_m = std::max(distance_m, near_field_m);
    if (target.reflectivity > 0.0F)
    {
        const float root_of_pi = 1.7724539F;
        return reference * root_of_pi * target.reflectivity / static_cast<float>(limited_m);
    }
    return reference * std::sqrt(target.strength_m2) / static_cast<float>(limited_m * limited_m);
}

} // namespace

namespace zet_simulator
{

std::optional<sight> sight_of_target(const view &view, uint32_t target)
{
    const zet_simulator_target_t &candidate = view.scene->targets[target];
    if (!scene_shows(candidate, view.sensor_id, view.time_s))
    {
        return std::nullopt;
    }
    const sight seen = scene_sight(*view.scene, candidate, view.sensor_id, view.time_s);
    const bool is_seen = seen.distance_m > 0.0 && seen.distance_m < horizon_m && seen.beam > 0.0F;
    return is_seen ? std::optional<sight>(seen) : std::nullopt;
}

echo echo_of_target(const frame_signal &frame, const subsweep_signal &subsweep, const view &view,
                    uint32_t target, const sight &seen)
{
    const zet_simulator_target_t &source = view.scene->targets[target];
    const float amplitude = amplitude_of(source, subsweep.echo_amplitude, seen.distance_m) * seen.beam;
    echo received = echo_at(frame, subsweep, seen.distance_m / meters_per_step, amplitude);
    if (source.fluctuation != ZET_SIMULATOR_FLUCTUATION_NONE)
    {
        fluctuate(received, source.fluctuation, key_of_part(view.frame_key, first_fluctuation_part + target));
    }
    return received;
}

uint32_t echoes_collect(const frame_signal &frame, const subsweep_signal &subsweep, const view &view,
                        echo *echoes)
{
    if (!subsweep.transmits)
    {
        return 0;
    }
    if (subsweep.loops_back)
    {
        echoes[0] = echo_at(frame, subsweep, 0.0, subsweep.echo_amplitude * loopback_amplitude);
        return add_sidelobes(frame, subsweep, echoes, 1);
    }
    uint32_t count = 0;
    echoes[count++] = echo_at(frame, subsweep, 0.0, subsweep.echo_amplitude * leakage_amplitude);
    for (uint32_t i = 0; i < view.scene->target_count; ++i)
    {
        if (const std::optional<sight> seen = sight_of_target(view, i))
        {
            echoes[count++] = echo_of_target(frame, subsweep, view, i, *seen);
        }
    }
    return add_sidelobes(frame, subsweep, echoes, count);
}

} // namespace zet_simulator
