/** @file
 * The recordings at a place: one, or those of several boards.
 */
#ifndef VANTOR_EACH_BOARD_H
#define VANTOR_EACH_BOARD_H

#include <filesystem>
#include <vector>

namespace vantor
{

/** A recording for a command. */
struct board_place
{
    std::filesystem::path recording;
    std::filesystem::path
        board; /**< name of the board's directory; empty for a recording of a single board */
};

/**
 * The recordings at a place: those of all boards, or the place itself.
 *
 * @throws bad_recording if the list of the boards is damaged
 */
std::vector<board_place> recordings_at(const std::filesystem::path &place);

} // namespace vantor

#endif
