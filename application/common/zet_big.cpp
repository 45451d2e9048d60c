/** @file
 * Integers of any size.
 */
#include "zet_big.h"

#include <bit>
#include <cstring>

namespace
{

/** Returns the word at an index; 0 above the highest word. */
uint32_t word(const zet_big_t &number, uint32_t place)
{
    return place < number.count ? number.words[place] : 0U;
}

/** Appends a new highest word, unless it is 0. */
void append(zet_big_t &number, uint64_t word)
{
    if (word > 0)
    {
        number.words[number.count] = static_cast<uint32_t>(word);
        ++number.count;
    }
}

/** Drops leading words that are 0. */
void trim(zet_big_t &number)
{
    while (number.count > 0 && number.words[number.count - 1] == 0)
    {
        --number.count;
    }
}

} // namespace

void zet_big_set(zet_big_t &number, uint64_t value)
{
    number.words[0] = static_cast<uint32_t>(value);
    number.words[1] = static_cast<uint32_t>(value >> 32U);
    number.count = 2;
    trim(number);
}

void zet_big_copy(zet_big_t &number, const zet_big_t &from)
{
    number.count = from.count;
    std::memcpy(number.words, from.words, from.count * sizeof(uint32_t));
}

void zet_big_multiply_add(zet_big_t &number, uint32_t factor, uint32_t addend)
{
    uint64_t carry = addend;
    for (uint32_t i = 0; i < number.count; ++i)
    {
        carry += uint64_t{number.words[i]} * factor;
        number.words[i] = static_cast<uint32_t>(carry);
        carry >>= 32U;
    }
    append(number, carry);
}

void zet_big_multiply_power_of_ten(zet_big_t &number, uint32_t power)
{
    for (; power >= 9; power -= 9)
    {
        zet_big_multiply_add(number, 1000000000U, 0);
    }
    for (; power > 0; --power)
    {
        zet_big_multiply_add(number, 10U, 0);
    }
}

void zet_big_multiply_power_of_two(zet_big_t &number, uint32_t power)
{
    const uint32_t words = number.count > 0 ? power / 32U : 0U;
    std::memmove(number.words + words, number.words, number.count * sizeof(uint32_t));
    std::memset(number.words, 0, words * sizeof(uint32_t));
    number.count += words;
    zet_big_multiply_add(number, 1U << power % 32U, 0);
}

int zet_big_compare(const zet_big_t &a, const zet_big_t &b)
{
    if (a.count != b.count)
    {
        return a.count < b.count ? -1 : 1;
    }
    for (uint32_t i = a.count; i-- > 0;)
    {
        if (a.words[i] != b.words[i])
        {
            return a.words[i] < b.words[i] ? -1 : 1;
        }
    }
    return 0;
}

void zet_big_add(zet_big_t &a, const zet_big_t &b)
{
    const uint32_t count = a.count > b.count ? a.count : b.count;
    uint64_t carry = 0;
    for (uint32_t i = 0; i < count; ++i)
    {
        carry += uint64_t{word(a, i)} + word(b, i);
        a.words[i] = static_cast<uint32_t>(carry);
        carry >>= 32U;
    }
    a.count = count;
    append(a, carry);
}

void zet_big_subtract(zet_big_t &a, const zet_big_t &b)
{
    uint64_t borrow = 0;
    for (uint32_t i = 0; i < a.count; ++i)
    {
        const uint64_t difference = uint64_t{a.words[i]} - word(b, i) - borrow;
        a.words[i] = static_cast<uint32_t>(difference);
        borrow = difference >> 63U;
    }
    trim(a);
}

uint32_t zet_big_bit_count(const zet_big_t &number)
{
    return number.count * 32U -
           (number.count > 0 ? static_cast<uint32_t>(std::countl_zero(number.words[number.count - 1])) : 0U);
}
