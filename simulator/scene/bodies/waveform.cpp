/** @file
 * Periodic motions as sums of sines.
 */
#include "scene/bodies/waveform.h"

#include <cmath>

namespace
{

using namespace zet_simulator;

constexpr double pi = 3.14159265358979323846;

/** Part of a breath that is inhalation. */
constexpr double inhalation = 0.4;

/** Returns how far a chest is out at a part of a breath, 0 to 1. */
double chest_at(double part)
{
    const double within =
        part < inhalation ? part / inhalation : 1.0 - (part - inhalation) / (1.0 - inhalation);
    return (1.0 - std::cos(pi * within)) / 2.0;
}

/** Returns the position of a foot relative to the body at a part of a cycle. */
double foot_at(double part, double support)
{
    const double swing = 1.0 - support;
    const double travelled = part < support ? 0.0 : (1.0 - std::cos(pi * (part - support) / swing)) / 2.0;
    return travelled - part;
}

/** Returns the Fourier series of a function with the period 1, by the mean over equally spaced values. */
template <typename function_t> waveform series_of(const function_t &function)
{
    constexpr int steps = 512;
    waveform series = {};
    for (int step = 0; step < steps; ++step)
    {
        series.mean += function(static_cast<double>(step) / steps) / steps;
    }
    for (size_t i = 0; i < harmonic_count; ++i)
    {
        double sine = 0.0;
        double cosine = 0.0;
        for (int step = 0; step < steps; ++step)
        {
            const double part = static_cast<double>(step) / steps;
            const double angle = 2.0 * pi * static_cast<double>(i + 1U) * part;
            sine += 2.0 / steps * function(part) * std::sin(angle);
            cosine += 2.0 / steps * function(part) * std::cos(angle);
        }
        series.harmonics[i] = {std::hypot(sine, cosine), std::atan2(cosine, sine) / (2.0 * pi)};
    }
    return series;
}

} // namespace

namespace zet_simulator
{

waveform breathing_waveform()
{
    return series_of(chest_at);
}

waveform foot_waveform(double support)
{
    return series_of([&](double part) { return foot_at(part, support); });
}

} // namespace zet_simulator
