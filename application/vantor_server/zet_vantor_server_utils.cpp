/** @file
 * Conversion between bytes and hexadecimal text.
 */
#include "zet_vantor_server_utils.h"

namespace
{

/** Returns the value of a hexadecimal digit; -1 for any other character. */
int digit_value(char digit)
{
    if (digit >= '0' && digit <= '9')
    {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f')
    {
        return digit - 'a' + 10;
    }
    if (digit >= 'A' && digit <= 'F')
    {
        return digit - 'A' + 10;
    }
    return -1;
}

} // namespace

bool convert_hexstr2uint(char *str, uint8_t *out, size_t size)
{
    for (size_t i = 0; i < size; ++i)
    {
        // The second digit is read only when the first is valid: the text may end anywhere.
        const int high = digit_value(str[2 * i]);
        const int low = high < 0 ? -1 : digit_value(str[2 * i + 1]);
        if (low < 0)
        {
            return false;
        }
        out[i] = static_cast<uint8_t>(high * 16 + low);
    }
    return str[2 * size] == '\0';
}

void convert_uint2hexstr(uint8_t *data, size_t size, char *out)
{
    static constexpr char digits[] = "0123456789abcdef";
    for (const uint8_t *next = data; next != data + size; ++next)
    {
        const uint8_t byte = *next;
        *out++ = digits[byte >> 4U];
        *out++ = digits[byte & 0x0FU];
    }
}
