/** @file
 * Log lines for the host: kept in a ring of fixed size until they can be sent between two messages.
 */
#ifndef ZET_VANTOR_SERVER_LOG_RING_H
#define ZET_VANTOR_SERVER_LOG_RING_H

#include <cstdint>

#include "zet_definitions_common.h"

/** Size of the ring in bytes, for all waiting lines; each line needs 3 bytes besides its texts. */
constexpr uint32_t zet_log_ring_size = 2048;

/** Longest tag of a module, in bytes; a longer one is cut. */
constexpr uint32_t zet_log_ring_max_module = 40;

/** Longest text of a line, in bytes; a longer one is cut. */
constexpr uint32_t zet_log_ring_max_text = 255;

/** The ring. An all-zero record is an empty ring. The fields are private. */
struct zet_log_ring_t
{
    uint32_t first; /**< where the oldest line starts */
    uint32_t used;  /**< bytes in use */
    uint32_t lines; /**< number of waiting lines */
    uint32_t lost;  /**< number of lines for which there was no room */
    uint8_t bytes[zet_log_ring_size];
};

/** A line taken out of the ring. */
struct zet_log_line_t
{
    zet_log_level_t level;                    /**< severity */
    char module[zet_log_ring_max_module + 1]; /**< tag of the module, zero-terminated */
    char text[zet_log_ring_max_text + 1];     /**< text, zero-terminated */
};

/** Drops all waiting lines and resets the count of lost ones. */
void zet_log_ring_clear(zet_log_ring_t *ring);

/** Adds a line; counts it as lost when there is no room for it. */
void zet_log_ring_put(zet_log_ring_t *ring, zet_log_level_t level, const char *module, const char *text);

/** Returns the number of waiting lines. */
uint32_t zet_log_ring_count(const zet_log_ring_t *ring);

/** Takes the oldest line out of the ring. To be called only when a line is waiting. */
void zet_log_ring_take(zet_log_ring_t *ring, zet_log_line_t *line);

/** Returns the number of lines lost since the last call. */
uint32_t zet_log_ring_take_lost(zet_log_ring_t *ring);

#endif
