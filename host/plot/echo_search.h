/** @file
 * Finds the strongest echo in a sweep.
 */
#ifndef VANTOR_ECHO_SEARCH_H
#define VANTOR_ECHO_SEARCH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vantor/item_statistics.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/**
 * Finds the strongest echo: a maximum from which the level falls by 3 dB on both sides, within its sub-sweep.
 * The direct leakage (within half of a pulse width from the sensor), the flank of an echo beyond the edge,
 * and an echo at the edge are none.
 *
 * @param item    the item
 * @param levels  magnitude of each point of the sweep
 * @return the point, or nothing if there is none
 */
std::optional<size_t> strongest_echo(const recorded_item &item, const std::vector<double> &levels);

/**
 * The distance of the echo at a maximum, in metres: between the points of the sweep, where a parabola through
 * the levels in decibels has its peak.
 */
double echo_distance(const recorded_item &item, const std::vector<double> &levels, size_t point);

/**
 * Whether a level is that of an echo: so far above noise and constant offset that noise alone seldom reaches
 * it.
 *
 * @param level   mean magnitude over some sweeps
 * @param sweeps  their number
 * @return false if the noise is unknown
 */
bool is_echo(double level, const background &around, uint64_t sweeps);

/** The strongest echo in the mean levels of an item. */
struct found_echo
{
    std::optional<double> distance = {}; /**< in metres; nothing if there is none */
    std::string note = {}; /**< why there is none, or why the distance is doubtful; may be empty */
};

/** Finds the strongest echo in the mean levels of an item. */
found_echo find_strongest_echo(const recorded_item &item, const item_statistics &statistics);

/** The sub-sweep that contains a point of the sweep. */
size_t subsweep_of(const recorded_item &item, size_t point);

} // namespace vantor

#endif
