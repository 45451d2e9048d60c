/** @file
 * Numbers as text.
 */
#include "common/number_text.h"

#include <cmath>
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

} // namespace zet_simulator
