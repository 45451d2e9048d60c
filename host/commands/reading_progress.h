/** @file
 * Progress of a command that reads a complete recording.
 */
#ifndef VANTOR_READING_PROGRESS_H
#define VANTOR_READING_PROGRESS_H

#include <algorithm>
#include <cstdint>
#include <functional>
#include <utility>

#include "commands/command_line.h"
#include "commands/progress.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** Shows on a terminal how many frames of a recording have been processed. */
class reading_progress
{
public:
    /**
     * @param recording  must outlive this object
     * @param streams    where to show the progress
     * @param times      how often the command reads each frame of each item
     * @param check      called after each frame, if set; an exception ends the command
     * @param now        the clock for rate and remaining time
     */
    reading_progress(recording_reader &recording, const command_streams &streams, unsigned times,
                     std::function<void()> check = {},
                     const time_source &now = std::chrono::steady_clock::now)
        : recording_(recording), line_(streams.err, streams.terminal, {.frames = recording.frames()}, now),
          reads_per_frame_(std::max<uint64_t>(recording.items().size() * times, 1)), check_(std::move(check))
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
        line_.update(reads / reads_per_frame_);
        if (check_)
        {
            check_();
        }
    }

    recording_reader &recording_;
    progress_line line_;
    uint64_t reads_per_frame_;
    std::function<void()> check_;
};

} // namespace vantor

#endif
