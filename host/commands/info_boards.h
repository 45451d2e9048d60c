/** @file
 * What `vantor info` shows of a recording of several boards.
 */
#ifndef VANTOR_INFO_BOARDS_H
#define VANTOR_INFO_BOARDS_H

#include <iosfwd>

#include <nlohmann/json.hpp>

#include "recording/recording_check.h"
#include "vantor/board_collection.h"

namespace vantor
{

/**
 * Checks the recordings of all boards and describes them. The member `boards` has what to_json() says of each
 * board, or its `damage` if it cannot be read.
 *
 * @param progress  called for each board
 */
nlohmann::ordered_json describe_boards(const board_collection &collection, const check_progress &progress);

/** Prints the boards of such a description on one axis of time. */
void print_boards(std::ostream &out, const nlohmann::ordered_json &about);

} // namespace vantor

#endif
