/** @file
 * Integers of any size, for the conversion of decimal numbers.
 */
#ifndef ZET_BIG_H
#define ZET_BIG_H

#include <cstdint>

/** An integer >= 0, lowest word first; the highest word is not 0. Its owner provides the memory. */
struct zet_big_t
{
    uint32_t *words = nullptr;
    uint32_t count = 0; /**< number of words; 0 for the value 0 */
};

/** An integer with its memory. */
template <uint32_t capacity> struct zet_big_memory_t : zet_big_t
{
    zet_big_memory_t()
    {
        words = memory;
    }
    zet_big_memory_t(const zet_big_memory_t &) = delete;
    zet_big_memory_t &operator=(const zet_big_memory_t &) = delete;

    uint32_t memory[capacity];
};

/** Sets a number to a value. */
void zet_big_set(zet_big_t &number, uint64_t value);

/** Copies a number. */
void zet_big_copy(zet_big_t &number, const zet_big_t &from);

/** Replaces a number by number × factor + addend; the factor is not 0. */
void zet_big_multiply_add(zet_big_t &number, uint32_t factor, uint32_t addend);

/** Multiplies by a power of ten. */
void zet_big_multiply_power_of_ten(zet_big_t &number, uint32_t power);

/** Multiplies by a power of two. */
void zet_big_multiply_power_of_two(zet_big_t &number, uint32_t power);

/** Compares two numbers; the result has the sign of a − b. */
int zet_big_compare(const zet_big_t &a, const zet_big_t &b);

/** Adds b to a. */
void zet_big_add(zet_big_t &a, const zet_big_t &b);

/** Subtracts b from a; b is not larger than a. */
void zet_big_subtract(zet_big_t &a, const zet_big_t &b);

/** Returns the number of bits; 0 for the value 0. */
uint32_t zet_big_bit_count(const zet_big_t &number);

#endif
