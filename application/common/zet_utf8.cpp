/** @file
 * Recognises well-formed UTF-8, by table 3-7 of the Unicode standard.
 */
#include "zet_utf8.h"

#include <cstdint>

namespace
{

/** Sequences with the same length and bounds of the second byte. All further bytes are 80 to BF. */
struct sequence_class_t
{
    uint8_t first_low;
    uint8_t first_high;
    uint8_t second_low;
    uint8_t second_high;
    uint8_t length;
};

constexpr sequence_class_t sequence_classes[] = {
    {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

/** Returns the class of the sequences that begin with a byte; null when there is none. */
const sequence_class_t *find_class(uint8_t first)
{
    for (const sequence_class_t &candidate : sequence_classes)
    {
        if (first >= candidate.first_low && first <= candidate.first_high)
        {
            return &candidate;
        }
    }
    return nullptr;
}

} // namespace

size_t zet_utf8_sequence_length(const char *text, size_t size)
{
    if (size == 0)
    {
        return 0;
    }
    const auto first = static_cast<uint8_t>(text[0]);
    if (first < 0x80U)
    {
        return 1;
    }
    const sequence_class_t *found = find_class(first);
    if (found == nullptr || size < found->length)
    {
        return 0;
    }
    const auto second = static_cast<uint8_t>(text[1]);
    if (second < found->second_low || second > found->second_high)
    {
        return 0;
    }
    for (size_t i = 2; i < found->length; ++i)
    {
        if ((static_cast<uint8_t>(text[i]) & 0xC0U) != 0x80U)
        {
            return 0;
        }
    }
    return found->length;
}
