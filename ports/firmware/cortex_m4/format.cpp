/** @file
 * Formatted text.
 */
#include "format.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "zet_decimal.h"

namespace
{

/** Most digits of a number: those of the largest one in octal. */
constexpr size_t most_digits = (8 * sizeof(unsigned long) + 2) / 3;

constexpr char no_prefix[3] = "";

/** A text that is being written. */
struct output_t
{
    char *text;
    size_t size;
    size_t count; /**< characters so far, also those that do not fit */
};

/** The arguments of a text. */
struct arguments_t
{
    va_list list;
};

/** A conversion, such as %-5d. */
struct conversion_t
{
    bool is_left;
    bool has_zeros;
    bool has_prefix;
    bool is_long;
    uint8_t dropped_bits; /**< upper bits of an int that do not belong to the number */
    char plus;            /**< the sign of a number that is not negative, or 0 */
    char type;
    size_t width;
    size_t precision; /**< SIZE_MAX when there is none */
};

void put(output_t &out, char character)
{
    if (out.count + 1 < out.size)
    {
        out.text[out.count] = character;
    }
    ++out.count;
}

void put(output_t &out, const char *text, size_t size)
{
    for (const char *const end = text + size; text != end; ++text)
    {
        put(out, *text);
    }
}

void repeat(output_t &out, char character, size_t count)
{
    for (; count > 0; --count)
    {
        put(out, character);
    }
}

/** Writes a text after some zeros, with padding: spaces around it, or more zeros after its prefix of at most
 * two characters. */
void put_field(output_t &out, const conversion_t &conversion, const char (&prefix)[3], size_t zeros,
               const char *text, size_t size)
{
    const size_t prefix_size = prefix[0] == '\0' ? 0 : prefix[1] == '\0' ? 1 : 2;
    const size_t padding = conversion.width - std::min(conversion.width, prefix_size + zeros + size);
    const bool has_zeros = conversion.has_zeros && !conversion.is_left;
    repeat(out, ' ', conversion.is_left || has_zeros ? 0 : padding);
    put(out, prefix, prefix_size);
    repeat(out, '0', has_zeros ? zeros + padding : zeros);
    put(out, text, size);
    repeat(out, ' ', conversion.is_left ? padding : 0);
}

void put_number(output_t &out, conversion_t &conversion, const char (&prefix)[3], unsigned long number)
{
    const char type = conversion.type;
    const unsigned long base = type == 'o' ? 8 : type == 'x' || type == 'X' || type == 'p' ? 16 : 10;
    const bool has_precision = conversion.precision != SIZE_MAX;
    char digits[most_digits];
    size_t count = 0;
    for (; number > 0; number /= base)
    {
        const auto digit = static_cast<uint8_t>(number % base);
        ++count;
        digits[most_digits - count] =
            static_cast<char>(digit < 10 ? '0' + digit : (type == 'X' ? 'A' : 'a') - 10 + digit);
    }
    const size_t precision = has_precision ? conversion.precision : 1;
    // The prefix of an octal number is a zero, unless it begins with one anyway.
    const size_t least = std::max(precision, conversion.has_prefix && type == 'o' ? count + 1 : count);
    conversion.has_zeros = conversion.has_zeros && !has_precision;
    put_field(out, conversion, prefix, least - count, digits + most_digits - count, count);
}

void put_signed(output_t &out, conversion_t &conversion, long number)
{
    const char sign[3] = {number < 0 ? '-' : conversion.plus};
    const auto magnitude = static_cast<unsigned long>(number);
    put_number(out, conversion, sign, number < 0 ? 0 - magnitude : magnitude);
}

void put_unsigned(output_t &out, conversion_t &conversion, unsigned long number)
{
    const bool has_prefix = conversion.has_prefix && number != 0 && conversion.type != 'o';
    const char prefix[3] = {has_prefix ? '0' : '\0', conversion.type};
    put_number(out, conversion, prefix, number);
}

void put_float(output_t &out, conversion_t &conversion, double number)
{
    const char sign[3] = {std::signbit(number) ? '-' : conversion.plus};
    char text[zet_decimal_text_size] = {'n', 'a', 'n'};
    size_t size = 3;
    if (std::isfinite(number))
    {
        size = zet_decimal_write(std::fabs(number), text);
    }
    else if (!std::isnan(number))
    {
        std::memcpy(text, "inf", size);
    }
    conversion.has_zeros = conversion.has_zeros && std::isfinite(number);
    put_field(out, conversion, sign, 0, text, size);
}

void put_text(output_t &out, conversion_t &conversion, const char *text)
{
    text = text != nullptr ? text : "(null)";
    size_t size = 0;
    while (size < conversion.precision && text[size] != '\0')
    {
        ++size;
    }
    conversion.has_zeros = false;
    put_field(out, conversion, no_prefix, 0, text, size);
}

/** Reads a number of a format, or the argument that replaces it, which can be negative. */
int read_number(const char **format, arguments_t &arguments)
{
    if (**format == '*')
    {
        ++*format;
        return va_arg(arguments.list, int);
    }
    int number = 0;
    for (; **format >= '0' && **format <= '9'; ++*format)
    {
        number = 10 * number + (**format - '0');
    }
    return number;
}

/** Reads a flag; false when there is none. */
bool read_flag(const char **format, conversion_t &conversion)
{
    switch (**format)
    {
    case '-':
        conversion.is_left = true;
        break;
    case '0':
        conversion.has_zeros = true;
        break;
    case '#':
        conversion.has_prefix = true;
        break;
    case '+':
    case ' ':
        conversion.plus = conversion.plus == '+' ? '+' : **format;
        break;
    default:
        return false;
    }
    ++*format;
    return true;
}

/** Reads a conversion behind its percent sign. */
conversion_t read_conversion(const char **format, arguments_t &arguments)
{
    conversion_t conversion = {};
    while (read_flag(format, conversion))
    {
    }
    const int width = read_number(format, arguments);
    conversion.is_left = conversion.is_left || width < 0;
    conversion.width = static_cast<size_t>(width < 0 ? -width : width);
    conversion.precision = SIZE_MAX;
    if (**format == '.')
    {
        ++*format;
        const int precision = read_number(format, arguments);
        conversion.precision = precision < 0 ? SIZE_MAX : static_cast<size_t>(precision);
    }
    for (; **format == 'h'; ++*format)
    {
        conversion.dropped_bits = conversion.dropped_bits == 0 ? 16 : 24;
    }
    if (**format == 'l' || **format == 'z' || **format == 't')
    {
        conversion.is_long = true;
        ++*format;
    }
    conversion.type = **format;
    return conversion;
}

/** Reads an argument that is a signed number. */
long read_signed(const conversion_t &conversion, arguments_t &arguments)
{
    if (conversion.is_long)
    {
        return va_arg(arguments.list, long);
    }
    const int number = va_arg(arguments.list, int);
    return static_cast<int>(static_cast<unsigned>(number) << conversion.dropped_bits) >>
           conversion.dropped_bits;
}

/** Reads an argument that is an unsigned number. */
unsigned long read_unsigned(const conversion_t &conversion, arguments_t &arguments)
{
    return conversion.is_long
               ? va_arg(arguments.list, unsigned long)
               : va_arg(arguments.list, unsigned) << conversion.dropped_bits >> conversion.dropped_bits;
}

/** Writes a conversion; false when it is unknown. */
bool put_conversion(output_t &out, conversion_t &conversion, arguments_t &arguments)
{
    va_list &list = arguments.list;
    switch (conversion.type)
    {
    case 'd':
    case 'i':
        put_signed(out, conversion, read_signed(conversion, arguments));
        return true;
    case 'u':
    case 'o':
    case 'x':
    case 'X':
        put_unsigned(out, conversion, read_unsigned(conversion, arguments));
        return true;
    case 'p':
        put_number(out, conversion, "0x", reinterpret_cast<uintptr_t>(va_arg(list, void *)));
        return true;
    case 's':
        put_text(out, conversion, va_arg(list, const char *));
        return true;
    case 'c':
    {
        const char character = static_cast<char>(va_arg(list, int));
        put_field(out, conversion, no_prefix, 0, &character, 1);
        return true;
    }
    case '%':
        put(out, '%');
        return true;
    default:
        break;
    }
    const bool is_float = conversion.type != '\0' && std::strchr("aAeEfFgG", conversion.type) != nullptr;
    if (is_float)
    {
        put_float(out, conversion, va_arg(list, double));
    }
    return is_float;
}

} // namespace

int cortex_m4::format(char *text, size_t size, const char *format, va_list arguments)
{
    output_t out = {text, size, 0};
    arguments_t rest;
    va_copy(rest.list, arguments);
    for (; *format != '\0'; ++format)
    {
        if (*format != '%')
        {
            put(out, *format);
            continue;
        }
        ++format;
        conversion_t conversion = read_conversion(&format, rest);
        if (!put_conversion(out, conversion, rest))
        {
            break;
        }
    }
    va_end(rest.list);
    if (size > 0)
    {
        text[std::min(out.count, size - 1)] = '\0';
    }
    return static_cast<int>(out.count);
}
