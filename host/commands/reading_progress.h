/** @file
 * Progress of a command that reads a complete recording.
 */
#ifndef VANTOR_READING_PROGRESS_H
#define VANTOR_READING_PROGRESS_H

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
     */
    reading_progress(recording_reader &recording, const command_streams &streams, unsigned times)
        : recording_(recording), line_(streams.err, streams.terminal,
                                       {.frames = recording.frames() * recording.items().size() * times})
    {
        recording_.on_read([this](uint64_t count) { line_.update(count); });
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
    recording_reader &recording_;
    progress_line line_;
};

} // namespace vantor

#endif
