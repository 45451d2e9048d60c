/** @file
 * Computes phase and velocity of an item.
 */
#ifndef VANTOR_POINT_ANALYSIS_H
#define VANTOR_POINT_ANALYSIS_H

#include <cstddef>

#include "plot/item_analysis.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/**
 * Computes the phase and the velocity spectrum at the point of an analysis, the velocity map, and whether the
 * motion is aliased. Reads all frames of the item.
 *
 * @param times  when the frames of the item were measured
 * @throws bad_recording if a file cannot be read
 */
void analyse_point(recording_reader &recording, size_t index, const timeline &times, item_analysis &analysis);

} // namespace vantor

#endif
