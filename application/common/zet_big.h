/** @file
 * Whole numbers of any size, for the conversion of decimal numbers.
 */
#ifndef ZET_BIG_H
#define ZET_BIG_H

#include <cstdint>

/** A whole number from 0 on, the lowest word first; the highest word is not 0. Its owner gives the memory. */
struct zet_big_t
{
    uint32_t *words = nullptr;
    uint32_t count = 0; /**< 0 for the number 0 */
};

/** A whole number with its memory. */
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

/** Gives a number a value. */
void zet_big_set(zet_big_t &number, uint64_t value);

/** Gives a number the value of another one. */
void zet_big_copy(zet_big_t &number, const zet_big_t &from);

/** Makes number × factor + addend; the factor is not 0. */
void zet_big_multiply_add(zet_big_t &number, uint32_t factor, uint32_t addend);

/** Multiplies by a power of ten. */
void zet_big_multiply_power_of_ten(zet_big_t &number, uint32_t power);

/** Multiplies by a power of two. */
void zet_big_multiply_power_of_two(zet_big_t &number, uint32_t power);

/** Compares two numbers: negative, zero or positive like a − b. */
int zet_big_compare(const zet_big_t &a, const zet_big_t &b);

/** Adds a number. */
void zet_big_add(zet_big_t &a, const zet_big_t &b);

/** Subtracts a number that is not larger. */
void zet_big_subtract(zet_big_t &a, const zet_big_t &b);

/** The number of bits; 0 for the number 0. */
uint32_t zet_big_bit_count(const zet_big_t &number);

#endif
