/** @file
 * Log lines on their way to the host: kept in a fixed ring until they can be sent between two messages.
 */
#ifndef ZET_VANTOR_SERVER_LOG_RING_H
#define ZET_VANTOR_SERVER_LOG_RING_H

#include <cstdint>

#include "zet_definitions_common.h"

/** Bytes of all waiting lines together, with 3 bytes for each line. */
constexpr uint32_t zet_log_ring_size = 2048;

/** Longest tag of a module; a longer one is cut. */
constexpr uint32_t zet_log_ring_max_module = 40;

/** Longest text of a line, in bytes; a longer one is cut. */
constexpr uint32_t zet_log_ring_max_text = 255;

/** The ring. All zero is an empty one. The fields are its own. */
struct zet_log_ring_t
{
    uint32_t first; /**< where the oldest line starts */
    uint32_t used;  /**< bytes taken */
    uint32_t lines; /**< number of waiting lines */
    uint32_t lost;  /**< lines for which there was no room */
    uint8_t bytes[zet_log_ring_size];
};

/** A line taken out. */
struct zet_log_line_t
{
    zet_log_level_t level;                    /**< severity */
    char module[zet_log_ring_max_module + 1]; /**< tag of the module, closed by a zero */
    char text[zet_log_ring_max_text + 1];     /**< text, closed by a zero */
};

/** Forgets all waiting lines, the lost ones included. */
void zet_log_ring_clear(zet_log_ring_t *ring);

/** Puts a line in; when there is no room for it, counts it as lost. */
void zet_log_ring_put(zet_log_ring_t *ring, zet_log_level_t level, const char *module, const char *text);

/** Number of waiting lines. */
uint32_t zet_log_ring_count(const zet_log_ring_t *ring);

/** Takes the oldest line out. To be called only when one is waiting. */
void zet_log_ring_take(zet_log_ring_t *ring, zet_log_line_t *line);

/** Returns the number of lines lost since the last call. */
uint32_t zet_log_ring_take_lost(zet_log_ring_t *ring);

#endif
