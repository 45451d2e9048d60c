/** @file
 * Power spectrum of complex samples, averaged over stretches of equal length.
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
 * A power spectrum in the making (Welch, "The use of fast Fourier transform for the estimation of power
 * spectra", 1967): stretches are freed of their mean, weighted with a Hann window, transformed by KissFFT,
 * and their powers averaged.
 */
class spectrum
{
public:
    /**
     * Starts a spectrum without stretches.
     *
     * @param length  samples of a stretch
     * @throws std::invalid_argument when the length is 0
     */
    explicit spectrum(size_t length);

    /**
     * Adds a stretch.
     *
     * @throws std::invalid_argument when it has another length
     */
    void add(const std::vector<std::complex<double>> &stretch);

    /** Number of stretches added. */
    [[nodiscard]] size_t count() const noexcept
    {
        return count_;
    }

    /**
     * The mean power of each frequency, from lowest to highest.
     *
     * @return element k stands for the frequency (k - length / 2) / length of the sample rate
     */
    [[nodiscard]] std::vector<double> powers() const;

private:
    kissfft<double> transform_;
    std::vector<double> window_;
    std::vector<std::complex<double>> weighted_;
    std::vector<std::complex<double>> transformed_; /**< frequencies from 0 upwards, then the negative ones */
    std::vector<double> sums_;
    size_t count_ = 0;
};

} // namespace vantor

#endif
