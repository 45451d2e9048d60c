/** @file
 * Power spectrum of complex samples, averaged over segments of equal length.
 */
#ifndef VANTOR_SPECTRUM_H
#define VANTOR_SPECTRUM_H

#include <complex>
#include <cstddef>
#include <vector>

#include <kissfft/kissfft.hh>

namespace vantor
{

/**
 * Computes a power spectrum (Welch, "The use of fast Fourier transform for the estimation of power spectra",
 * 1967): removes the mean of each segment, applies a Hann window, transforms with KissFFT, and averages the
 * powers.
 */
class spectrum
{
public:
    /**
     * Starts a spectrum without segments.
     *
     * @param length  number of samples in a segment
     * @throws std::invalid_argument if the length is 0
     */
    explicit spectrum(size_t length);

    /**
     * Adds a segment.
     *
     * @throws std::invalid_argument if it has a different length
     */
    void add(const std::vector<std::complex<double>> &segment);

    /** Number of segments added. */
    [[nodiscard]] size_t count() const noexcept
    {
        return count_;
    }

    /**
     * Returns the mean power at each frequency, from the lowest to the highest.
     *
     * @return element k is the power at (k - length / 2) / length times the sample rate
     */
    [[nodiscard]] std::vector<double> powers() const;

private:
    kissfft<double> transform_;
    std::vector<double> window_;
    std::vector<std::complex<double>> weighted_;
    std::vector<std::complex<double>> transformed_; /**< non-negative frequencies, then the negative ones */
    std::vector<double> sums_;
    size_t count_ = 0;
};

} // namespace vantor

#endif
