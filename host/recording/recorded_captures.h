/** @file
 * Reads the captures of a recording from its documents.
 */
#ifndef VANTOR_RECORDED_CAPTURES_H
#define VANTOR_RECORDED_CAPTURES_H

#include <cstdint>
#include <vector>

#include "recording/capture_list.h"
#include "recording/recording_documents.h"

namespace vantor
{

/** The captures in the metadata of the first item that are not damaged; a single one if there are none. */
std::vector<capture> read_captures(const recording_documents &documents);

/** The number of breaks that are not among these captures, because there are too many. */
uint64_t read_unlisted_breaks(const std::vector<recorded_item> &items);

} // namespace vantor

#endif
