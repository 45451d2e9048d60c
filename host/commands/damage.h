/** @file
 * Reports damage of recordings.
 */
#ifndef VANTOR_DAMAGE_H
#define VANTOR_DAMAGE_H

#include <functional>
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

} // namespace vantor

#endif
