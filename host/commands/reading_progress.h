/** @file
 * Progress of a command that reads a complete recording.
 */
#ifndef VANTOR_READING_PROGRESS_H
#define VANTOR_READING_PROGRESS_H

#include <functional>
#include <utility>

#include "commands/command_line.h"
#include "commands/progress.h"
#include "recording/recording_reader.h"

namespace vantor
{

/** Shows on a terminal how much of a recording has been read. */
class reading_progress
{
public:
    /**
     * @param recording  must outlive this object
     * @param streams    where to show the progress
     * @param times      how often the command reads each frame of each item
     * @param check      called after each frame, if set; an exception ends the command
     */
    reading_progress(recording_reader &recording, const command_streams &streams, unsigned times,
                     std::function<void()> check = {})
        : recording_(recording), line_(streams.err, streams.terminal,
                                       {.frames = recording.frames() * recording.items().size() * times}),
          check_(std::move(check))
    {
        recording_.on_read([this](uint64_t count) { update(count); });
    }
    reading_progress(const reading_progress &) = delete;
    reading_progress &operator=(const reading_progress &) = delete;
    reading_progress(reading_progress &&) = delete;
    reading_progress &operator=(reading_progress &&) = delete;

    ~reading_progress()
    {
        recording_.on_read({});
    }

private:
    /** Shows the progress after a number of reads. */
    void update(uint64_t reads)
    {
        line_.update(reads);
        if (check_)
        {
            check_();
        }
    }

    recording_reader &recording_;
    progress_line line_;
    std::function<void()> check_;
};

} // namespace vantor

#endif
