/** @file
 * Records several boards at the same time.
 */
#ifndef VANTOR_RECORD_BOARDS_H
#define VANTOR_RECORD_BOARDS_H

#include <memory>
#include <vector>

#include "commands/board_recording.h"
#include "commands/command.h"
#include "commands/record.h"
#include "vantor/event_loop.h"

namespace vantor
{

/**
 * Records several boards into one directory, and prints a summary for each, and the failures.
 *
 * Nothing is recorded if one of them cannot be set up. One that fails later does not end the others.
 *
 * @param loop  of the links
 * @return that of the first board on the command line that failed; otherwise success, or interrupted
 * @throws recording_error if the files cannot be created
 */
exit_code record_boards(const record_options &options, const command_streams &streams,
                        std::vector<board_source> boards, const std::shared_ptr<event_loop> &loop);

} // namespace vantor

#endif
