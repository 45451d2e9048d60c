/** @file
 * Reports damage of recordings.
 */
#ifndef VANTOR_DAMAGE_H
#define VANTOR_DAMAGE_H

#include <atomic>
#include <filesystem>
#include <functional>
#include <future>
#include <string>

#include "commands/command.h"
#include "recording/recording_check.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** Describes how much of a damaged recording is left, such as "garage is damaged; 1 of 2 frames are left". */
std::string describe_damage(const recording_check &check);

/**
 * Checks a recording as `vantor info` does, and prints a warning if it is damaged; shows progress on a
 * terminal. This reads all files.
 *
 * @param recording  the recording; the warning is for a command that uses it all the same
 * @param streams    where to print
 * @param stop       called often; an exception ends the check
 */
void warn_of_damage(const recording_reader &recording, const command_streams &streams,
                    const std::function<void()> &stop);

/** Checks a recording on a separate thread, while a command reads it, as warn_of_damage() does before. */
class background_check
{
public:
    /**
     * Begins the check.
     *
     * @param directory  of the recording
     * @param stop       called often, on both threads; an exception ends the check
     */
    background_check(const std::filesystem::path &directory, std::function<void()> stop);
    background_check(const background_check &) = delete;
    background_check &operator=(const background_check &) = delete;
    background_check(background_check &&) = delete;
    background_check &operator=(background_check &&) = delete;

    /** Ends the check if it still runs. */
    ~background_check();

    /** Waits for the end of the check, and prints a warning if the recording is damaged; throws what ended
     * it. */
    void warn(const command_streams &streams);

private:
    std::atomic<bool> abandoned_ = false;
    std::future<recording_check> check_;
};

} // namespace vantor

#endif
