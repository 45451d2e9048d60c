/** @file
 * Quantiles of many numbers.
 */
#ifndef VANTOR_QUANTILE_H
#define VANTOR_QUANTILE_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace vantor
{

/**
 * The element that @p below elements precede in ascending order. Its time does not depend on the order of the
 * numbers, unlike that of std::nth_element, which the branches of a processor cannot predict.
 *
 * @param values  at least one
 * @param below   less than their number
 */
int32_t quantile(std::span<const int32_t> values, size_t below);

/** The same for numbers that are not negative, and not NaN. */
float quantile_of_powers(std::span<const float> values, size_t below);

} // namespace vantor

#endif
