/** @file
 * Numbers as text.
 */
#include "common/number_text.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace
{

/** Magnitude from which a number is not written in digits. */
constexpr double largest = 1.0e9;

/** Removes zeros at the end of the decimals, and the decimal point if no decimals are left. */
void cut_zeros(char *text, int length)
{
    while (length > 0 && text[length - 1] == '0')
    {
        text[--length] = '\0';
    }
    if (length > 0 && text[length - 1] == '.')
    {
        text[length - 1] = '\0';
    }
}

using zet_simulator::number_text;

/** Digits of a number with an exponent: the most distinguish all numbers of single precision. */
constexpr int least_digits = 3;
constexpr int most_digits = 9;

/** Writes a number with an exponent, such as "1.25e-7". */
number_text with_exponent(double value, int digits)
{
    number_text result = {};
    int exponent = 0;
    double size = value < 0.0 ? -value : value;
    while (size >= 10.0)
    {
        size /= 10.0;
        ++exponent;
    }
    while (size > 0.0 && size < 1.0)
    {
        size *= 10.0;
        --exponent;
    }
    unsigned long unit = 1;
    for (int i = 1; i < digits; ++i)
    {
        unit *= 10U;
    }
    auto scaled = static_cast<unsigned long>(std::lround(size * static_cast<double>(unit)));
    if (scaled == 10U * unit)
    {
        scaled = unit;
        ++exponent;
    }
    const int length = std::snprintf(result.text, sizeof(result.text), "%s%lu.%0*lu", value < 0.0 ? "-" : "",
                                     scaled / unit, digits - 1, scaled % unit);
    cut_zeros(result.text, length);
    const size_t used = std::strlen(result.text);
    (void)std::snprintf(result.text + used, sizeof(result.text) - used, "e%d", exponent);
    return result;
}

/**
 * Finds the bound for which a text stands as well as for a value that is not this bound; null if there is
 * none.
 *
 * @param digits  of a text with an exponent; 0 for one without
 */
const double *find_look_alike(double value, const number_text &text, std::initializer_list<double> bounds,
                              int digits)
{
    const char *const unsigned_text = text.text + (text.text[0] == '-' ? 1 : 0);
    for (const double &bound : bounds)
    {
        const number_text other = digits > 0 ? with_exponent(bound, digits) : zet_simulator::text_of(bound);
        if (value != bound && (std::strcmp(text.text, other.text) == 0 ||
                               (bound == 0.0 && std::strcmp(unsigned_text, other.text) == 0)))
        {
            return &bound;
        }
    }
    return nullptr;
}

} // namespace

namespace zet_simulator
{

number_text text_of(double value)
{
    number_text result = {};
    if (!(value > -largest && value < largest))
    {
        const char *text = value >= largest ? "more than 1e9" : value <= -largest ? "less than -1e9" : "NaN";
        std::memcpy(result.text, text, std::strlen(text) + 1U);
        return result;
    }
    const double size = value < 0.0 ? -value : value;
    auto whole = static_cast<unsigned long>(size);
    auto thousandths = static_cast<unsigned long>(std::lround((size - static_cast<double>(whole)) * 1000.0));
    whole += thousandths / 1000U;
    thousandths %= 1000U;
    const int length = std::snprintf(result.text, sizeof(result.text), "%s%lu.%03lu", value < 0.0 ? "-" : "",
                                     whole, thousandths);
    cut_zeros(result.text, length);
    return result;
}

number_text text_beside(double value, std::initializer_list<double> bounds)
{
    number_text result = text_of(value);
    const double *look_alike = find_look_alike(value, result, bounds, 0);
    for (int digits = least_digits; look_alike != nullptr && digits <= most_digits; ++digits)
    {
        result = with_exponent(value, digits);
        look_alike = find_look_alike(value, result, bounds, digits);
    }
    if (look_alike != nullptr)
    {
        (void)std::snprintf(result.text, sizeof(result.text), "just %s %.20s",
                            value > *look_alike ? "above" : "below", text_of(*look_alike).text);
    }
    return result;
}

double upper_bound_with_decimals(double bound)
{
    return static_cast<double>(static_cast<uint64_t>(bound * 1000.0)) / 1000.0;
}

} // namespace zet_simulator
