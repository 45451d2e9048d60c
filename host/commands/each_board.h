/** @file
 * The recordings at a place: one, or those of several boards.
 */
#ifndef VANTOR_EACH_BOARD_H
#define VANTOR_EACH_BOARD_H

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <vector>

#include "commands/exit_code.h"

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

/**
 * Does something with the recording of each board. If it fails for one of several boards, this prints the
 * failure with the name of the board, and goes on with the next.
 *
 * @param err  where to print
 * @return the exit code of the first failure, or success
 * @throws what the work throws if there is only one recording, or if the user has asked to stop
 */
exit_code for_each_recording(const std::vector<board_place> &places, std::ostream &err,
                             const std::function<void(const board_place &)> &work);

} // namespace vantor

#endif
