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

/** What a spectrum does with samples that do not change. */
enum class spectrum_mean
{
    remove, /**< the mean of each segment is subtracted */
    keep,
};

/**
 * Computes a power spectrum (Welch, "The use of fast Fourier transform for the estimation of power spectra",
 * 1967): removes the mean of each segment if asked to, applies a Hann window, transforms with KissFFT, and
 * averages the powers.
 */
class spectrum
{
public:
    /**
     * Starts a spectrum without segments.
     *
     * @param length  number of samples in a segment
     * @param mean    whether the mean of each segment is removed
     * @throws std::invalid_argument if the length is 0
     */
    explicit spectrum(size_t length, spectrum_mean mean = spectrum_mean::remove);

    /**
     * Adds a segment.
     *
     * @throws std::invalid_argument if it has a different length
     */
    void add(const std::vector<std::complex<double>> &segment);

    /**
     * Computes the powers of a segment, without adding it.
     *
     * @param sums  to each element, the power at its frequency is added
     * @throws std::invalid_argument if the segment or the sums have a different length
     */
    void add_powers(const std::vector<std::complex<double>> &segment, std::vector<double> &sums);

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

    /** The power of a tone of amplitude 1 at its frequency, if that is one of the spectrum. */
    [[nodiscard]] double tone_power() const;

    /** The mean power at each frequency of white noise with the RMS amplitude 1. */
    [[nodiscard]] double noise_power() const;

    /** The amplitude of a tone with this power at its frequency. */
    [[nodiscard]] double tone_amplitude(double power) const;

    /** The amplitude of a tone as strong as white noise with this RMS amplitude at each frequency. */
    [[nodiscard]] double noise_amplitude(double rms) const;

private:
    spectrum_mean mean_;
    kissfft<double> transform_;
    std::vector<double> window_;
    std::vector<std::complex<double>> weighted_;
    std::vector<std::complex<double>> transformed_; /**< non-negative frequencies, then the negative ones */
    std::vector<double> sums_;
    size_t count_ = 0;
};

} // namespace vantor

#endif
