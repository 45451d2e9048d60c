/** @file
 * Distances of the points of a sweep.
 */
#ifndef VANTOR_POINT_DISTANCES_H
#define VANTOR_POINT_DISTANCES_H

#include <vector>

#include "configuration/configuration.h"
#include "vantor/session.h"

namespace vantor
{

/**
 * Computes the distance of each point of a sweep.
 *
 * @param layout  the item's layout
 * @param item    the item's configuration
 * @return one distance in metres for each sample of a sweep; NaN for samples outside all sub-sweeps
 */
std::vector<double> point_distances(const item_layout &layout, const item_configuration &item);

} // namespace vantor

#endif
