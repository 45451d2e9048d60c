/** @file
 * Phase noise, drift and bursts of interference.
 */
#include "sensor_library/hardware.h"

#include <algorithm>
#include <cmath>

#include "common/noise.h"
#include "common/trigonometry.h"
#include "scene/scene.h"

namespace
{

using namespace zet_simulator;

/** Parts of a session's key below this one are its frames. */
constexpr uint64_t drift_part = uint64_t{1} << 32U;

/** Parts of a frame's key from this one on are those of its measurements. */
constexpr uint64_t first_measurement_part = 1024;
static_assert(first_measurement_part >= first_fluctuation_part + ZET_SIMULATOR_MAX_TARGETS,
              "phase noise and fluctuation are independent");

/** The drift's lowest octave begins at this frequency. */
constexpr double lowest_drift_hz = 1.0 / 64.0;
constexpr uint32_t drift_octaves = 10;
constexpr uint32_t sines_per_octave = 4;

/** A phase in radians for each metre of distance, as a fraction of the carrier's frequency. */
constexpr double frequency_per_rad_per_m = meters_per_step / 6.283185307179586;

/** Returns a normally distributed number of mean 0 and variance 1 from a key, by the method of Box and
 * Muller. */
float normal_of(uint64_t key)
{
    const float magnitude = std::sqrt(2.0F * exponential_of(static_cast<uint32_t>(key)));
    return magnitude * sine_of(static_cast<uint32_t>(key >> 32U));
}

/** Returns the sum of the sines of all octaves. Their frequencies are random within equal parts of an octave,
 * so that they are no lines of a spectrum, except in a very long time. */
double flicker_at(uint64_t key, double time_s)
{
    double sum = 0.0;
    double octave_hz = lowest_drift_hz;
    for (uint32_t i = 0; i < drift_octaves * sines_per_octave; ++i)
    {
        const uint64_t random = key_of_part(key, i);
        const auto within = static_cast<double>(uniform_of(static_cast<uint32_t>(random >> 32U)));
        const uint32_t part = i % sines_per_octave;
        const double hz = octave_hz * (1.0 + (part + within) / sines_per_octave);
        sum +=
            static_cast<double>(sine_of(phase_from_turns(hz * time_s) + static_cast<binary_angle>(random)));
        octave_hz *= part + 1U == sines_per_octave ? 2.0 : 1.0;
    }
    return sum;
}

/** Returns whether a burst of a slot is there at a time, in slots: it begins at a random time in the slot. */
bool has_burst(const view &view, uint64_t slot, double time)
{
    const zet_simulator_hardware_t &hardware = *view.hardware;
    const uint64_t random = key_of_part(view.band_key, slot);
    const auto start =
        static_cast<double>(slot) + static_cast<double>(uniform_of(static_cast<uint32_t>(random)));
    return uniform_of(static_cast<uint32_t>(random >> 32U)) < hardware.bursts_per_s * hardware.burst_s &&
           time >= start && time < start + 1.0;
}

/** Returns the power of bursts at a time. */
float burst_power(const view &view)
{
    const zet_simulator_hardware_t &hardware = *view.hardware;
    if (hardware.bursts_per_s == 0.0F)
    {
        return 0.0F;
    }
    // Slots are counted from 1, so that there is one before the first.
    const double time = view.time_s / static_cast<double>(hardware.burst_s) + 1.0;
    const auto slot = static_cast<uint64_t>(time);
    const bool is_disturbed = has_burst(view, slot, time) || has_burst(view, slot - 1U, time);
    return is_disturbed ? hardware.burst_strength : 0.0F;
}

} // namespace

namespace zet_simulator
{

double hardware_frequency_drift(const view &view)
{
    if (view.hardware == nullptr || view.hardware->phase_drift_rad_per_m == 0.0F)
    {
        return 0.0;
    }
    // The power of an octave is that of its sines of amplitude 1, half of their number.
    const double of_octave = 0.7071067811865476;
    static_assert(sines_per_octave == 4);
    return static_cast<double>(view.hardware->phase_drift_rad_per_m) * frequency_per_rad_per_m * of_octave *
           flicker_at(key_of_part(view.session_key, drift_part), view.time_s);
}

double hardware_frequency_noise(const view &view, const subsweep_signal &subsweep, uint32_t measurement)
{
    if (view.hardware == nullptr || view.hardware->phase_noise_rad_per_m == 0.0F)
    {
        return 0.0;
    }
    const float of_mean = view.hardware->phase_noise_rad_per_m * subsweep.noise_of_mean;
    return static_cast<double>(of_mean *
                               normal_of(key_of_part(view.frame_key, first_measurement_part + measurement))) *
           frequency_per_rad_per_m;
}

void hardware_apply(const zet_simulator_hardware_t &hardware, double kelvin, frame_signal &frame)
{
    const double meters_per_mm = 0.001;
    const auto drift = static_cast<double>(hardware.delay_drift_mm_per_k);
    frame.delay_steps = drift * meters_per_mm / meters_per_step * kelvin;
    frame.gain = std::max(1.0F - hardware.gain_drift_per_k * static_cast<float>(kelvin), 0.0F);
    frame.sidelobe_level = hardware.sidelobe_level;
    frame.ringing_level = hardware.ringing_level;
}

float hardware_interference(const view &view)
{
    const float power = scene_interference(*view.scene, view.sensor_id, view.time_s);
    return view.hardware != nullptr ? power + burst_power(view) : power;
}

} // namespace zet_simulator
