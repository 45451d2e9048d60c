/** @file
 * Shows the progress of checking a recording.
 */
#ifndef VANTOR_CHECK_PROGRESS_H
#define VANTOR_CHECK_PROGRESS_H

#include <memory>
#include <utility>

#include "commands/command.h"
#include "commands/progress.h"
#include "recording/recording_check.h"

namespace vantor
{

/** Returns a function that shows on a terminal how much of a recording has been read. */
inline check_progress show_progress(const command_streams &streams)
{
    auto line = std::make_shared<std::unique_ptr<progress_line>>();
    return [line = std::move(line), &err = streams.err, terminal = streams.terminal](uint64_t done,
                                                                                     uint64_t total) {
        if (!*line)
        {
            *line = std::make_unique<progress_line>(err, terminal, progress_goal{.frames = total});
        }
        (*line)->update(done);
    };
}

} // namespace vantor

#endif
