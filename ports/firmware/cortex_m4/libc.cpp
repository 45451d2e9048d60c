/** @file
 * System functions for the C library. Memory comes only from the board's allocator, and there are no files.
 */
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "cortex_m4.h"
#include "divide.h"
#include "format.h"
#include "zet_decimal.h"

namespace
{

/** A word at any address. */
struct [[gnu::packed, gnu::may_alias]] any_word_t
{
    uint32_t value;
};

void store_word(uint8_t *address, uint32_t word)
{
    reinterpret_cast<any_word_t *>(address)->value = word;
}

uint32_t load_word(const void *address)
{
    return static_cast<const any_word_t *>(address)->value;
}

} // namespace

extern "C" {

/** Replaces that of the C library, which allocates memory for long numbers and aborts when that fails. */
double strtod(const char *text, char **end)
{
    size_t length = 0;
    const double value = zet_decimal_read(text, &length);
    if (end != nullptr)
    {
        *end = const_cast<char *>(text) + length;
    }
    return value;
}

// The small C library works byte by byte; most data cleared and copied here is a multiple of words, which the
// processor can also store at odd addresses.

void *memset(void *destination, int value, size_t size)
{
    auto *byte = static_cast<uint8_t *>(destination);
    const uint32_t word = static_cast<uint8_t>(value) * 0x01010101U;
    for (const uint8_t *end = byte + (size & ~size_t{15}); byte != end; byte += 16)
    {
        store_word(byte, word);
        store_word(byte + 4, word);
        store_word(byte + 8, word);
        store_word(byte + 12, word);
    }
    if ((size & 8U) != 0U)
    {
        store_word(byte, word);
        store_word(byte + 4, word);
        byte += 8;
    }
    if ((size & 4U) != 0U)
    {
        store_word(byte, word);
        byte += 4;
    }
    for (const uint8_t *end = byte + (size & 3U); byte != end; ++byte)
    {
        *byte = static_cast<uint8_t>(word);
    }
    return destination;
}

void *memcpy(void *__restrict destination, const void *__restrict source, size_t size)
{
    auto *to = static_cast<uint8_t *>(destination);
    const auto *from = static_cast<const uint8_t *>(source);
    for (; size >= sizeof(uint32_t);
         size -= sizeof(uint32_t), to += sizeof(uint32_t), from += sizeof(uint32_t))
    {
        store_word(to, load_word(from));
    }
    for (; size > 0; --size)
    {
        *to++ = *from++;
    }
    return destination;
}

size_t strlen(const char *text)
{
    const char *end = text;
    for (; reinterpret_cast<uintptr_t>(end) % sizeof(uint32_t) != 0; ++end)
    {
        if (*end == '\0')
        {
            return static_cast<size_t>(end - text);
        }
    }
    // A word contains a zero byte when subtracting one from each byte borrows where none had its top bit set.
    for (uint32_t word = load_word(end); ((word - 0x01010101U) & ~word & 0x80808080U) == 0U;
         word = load_word(end))
    {
        end += sizeof word;
    }
    while (*end != '\0')
    {
        ++end;
    }
    return static_cast<size_t>(end - text);
}

// Those of the small C library are made for speed, in ten times as much code.

void *memmove(void *destination, const void *source, size_t size)
{
    auto *to = static_cast<uint8_t *>(destination);
    const auto *from = static_cast<const uint8_t *>(source);
    if (to <= from || to >= from + size)
    {
        return std::memcpy(destination, source, size);
    }
    while (size > 0)
    {
        --size;
        to[size] = from[size];
    }
    return destination;
}

int strncmp(const char *left, const char *right, size_t size)
{
    for (; size > 0; --size, ++left, ++right)
    {
        const int difference = static_cast<uint8_t>(*left) - static_cast<uint8_t>(*right);
        if (difference != 0 || *left == '\0')
        {
            return difference;
        }
    }
    return 0;
}

int strcmp(const char *left, const char *right)
{
    return std::strncmp(left, right, SIZE_MAX);
}

char *strchr(const char *text, int character)
{
    const char wanted = static_cast<char>(character);
    while (*text != wanted && *text != '\0')
    {
        ++text;
    }
    return *text == wanted ? const_cast<char *>(text) : nullptr;
}

int vsnprintf(char *text, size_t size, const char *format, va_list arguments)
{
    return cortex_m4::format(text, size, format, arguments);
}

int snprintf(char *text, size_t size, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int count = cortex_m4::format(text, size, format, arguments);
    va_end(arguments);
    return count;
}

/** Divides for the compiler, which calls it for numbers of 64 bits. */
// NOLINTNEXTLINE(cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming): the name is fixed
uint64_t __udivmoddi4(uint64_t number, uint64_t divisor, uint64_t *remainder)
{
    const cortex_m4::quotient_t divided = cortex_m4::divide(number, divisor);
    if (remainder != nullptr)
    {
        *remainder = divided.remainder;
    }
    return divided.quotient;
}

// cJSON refers to these functions, but calls those that it is given.

void *malloc(size_t /*size*/)
{
    return nullptr;
}

void *realloc(void * /*memory*/, size_t /*size*/)
{
    return nullptr;
}

void free(void * /*memory*/)
{
}

/** For functions of the C library that allocate by themselves. */
void *_sbrk(ptrdiff_t /*increment*/)
{
    errno = ENOMEM;
    return reinterpret_cast<void *>(-1); // NOLINT(performance-no-int-to-ptr): required by the C library
}

[[noreturn]] void _exit(int /*status*/)
{
    cortex_m4::reset_system();
}
}
