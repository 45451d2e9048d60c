/** @file
 * Log lines for the host.
 *
 * A line is stored as its level, the lengths of its two texts and the texts themselves.
 */
#include "zet_vantor_server_log_ring.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace
{

/** Bytes of a line besides its two texts. */
constexpr uint32_t line_overhead = 3;

/** Returns the length of a text, at most the given one. */
uint8_t cut_length(const char *text, uint32_t longest)
{
    const size_t length = std::strlen(text);
    return static_cast<uint8_t>(std::min<size_t>(length, longest));
}

/** Adds one byte; the caller has checked that there is room. */
void put_byte(zet_log_ring_t *ring, uint8_t byte)
{
    ring->bytes[(ring->first + ring->used) % zet_log_ring_size] = byte;
    ++ring->used;
}

/** Removes one byte and returns it. */
uint8_t take_byte(zet_log_ring_t *ring)
{
    const uint8_t byte = ring->bytes[ring->first];
    ring->first = (ring->first + 1) % zet_log_ring_size;
    --ring->used;
    return byte;
}

/** Adds a text. */
void put_text(zet_log_ring_t *ring, const char *text, uint8_t length)
{
    for (uint8_t i = 0; i < length; ++i)
    {
        put_byte(ring, static_cast<uint8_t>(text[i]));
    }
}

/** Removes a text and terminates it with a zero. */
void take_text(zet_log_ring_t *ring, char *text, uint8_t length)
{
    for (uint8_t i = 0; i < length; ++i)
    {
        text[i] = static_cast<char>(take_byte(ring));
    }
    text[length] = '\0';
}

} // namespace

void zet_log_ring_clear(zet_log_ring_t *ring)
{
    ring->used = 0;
    ring->lines = 0;
    ring->lost = 0;
}

void zet_log_ring_put(zet_log_ring_t *ring, zet_log_level_t level, const char *module, const char *text)
{
    const uint8_t module_length = cut_length(module, zet_log_ring_max_module);
    const uint8_t text_length = cut_length(text, zet_log_ring_max_text);
    if (line_overhead + module_length + text_length > zet_log_ring_size - ring->used)
    {
        ++ring->lost;
        return;
    }
    put_byte(ring, level);
    put_byte(ring, module_length);
    put_byte(ring, text_length);
    put_text(ring, module, module_length);
    put_text(ring, text, text_length);
    ++ring->lines;
}

uint32_t zet_log_ring_count(const zet_log_ring_t *ring)
{
    return ring->lines;
}

void zet_log_ring_take(zet_log_ring_t *ring, zet_log_line_t *line)
{
    line->level = static_cast<zet_log_level_t>(take_byte(ring));
    const uint8_t module_length = take_byte(ring);
    const uint8_t text_length = take_byte(ring);
    take_text(ring, line->module, module_length);
    take_text(ring, line->text, text_length);
    --ring->lines;
}

uint32_t zet_log_ring_take_lost(zet_log_ring_t *ring)
{
    const uint32_t lost = ring->lost;
    ring->lost = 0;
    return lost;
}
