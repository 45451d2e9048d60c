/** @file
 * Finds the recordings of boards in a directory.
 */
#ifndef VANTOR_FOUND_BOARDS_H
#define VANTOR_FOUND_BOARDS_H

#include <filesystem>
#include <string>
#include <vector>

#include "vantor/board_collection.h"

namespace vantor
{

/** Whether a text is the name of a file or directory in the current directory that is not hidden. */
bool is_file_name(const std::string &text);

/** Whether a directory has directories with recordings, but is not a recording itself. */
bool has_recordings_inside(const std::filesystem::path &directory);

/**
 * Describes the recordings in the directories of a directory, sorted by name, as far as their own documents
 * can be read.
 *
 * @throws bad_recording if the directory cannot be read
 */
std::vector<recorded_board> find_boards(const std::filesystem::path &directory);

} // namespace vantor

#endif
