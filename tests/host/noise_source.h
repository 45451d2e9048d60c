/** @file
 * Noise for tests of what is computed from samples.
 */
#ifndef VANTOR_NOISE_SOURCE_H
#define VANTOR_NOISE_SOURCE_H

#include <complex>
#include <numbers>
#include <random>

namespace vantor::test
{

/** Noise with this RMS amplitude, the same in every run. */
class noise_source
{
public:
    explicit noise_source(double rms) : part_(0.0, rms / std::numbers::sqrt2)
    {
    }

    std::complex<double> operator()()
    {
        return {part_(source_), part_(source_)};
    }

    /** Leaves out a number. */
    void skip()
    {
        source_.discard(1);
    }

private:
    std::mt19937 source_{7};
    std::normal_distribution<double> part_;
};

} // namespace vantor::test

#endif
