/** @file
 * Reports damage of recordings.
 */
#include "commands/damage.h"

#include <ostream>

#include "commands/check_progress.h"
#include "recording/printable.h"

namespace vantor
{

std::string describe_damage(const recording_check &check)
{
    const auto recorded = check.recorded ? " of " + std::to_string(*check.recorded) : std::string();
    return check.documents.directory.string() + " is damaged; " + std::to_string(check.frames) + recorded +
           " frames are left";
}

void warn_of_damage(const recording_reader &recording, const command_streams &streams,
                    const std::function<void()> &stop)
{
    const auto check =
        check_recording(recording.directory(), show_progress(streams), stop, check_scope::damage);
    if (!check.faults.empty())
    {
        streams.err << "vantor: warning: "
                    << printable(describe_damage(check) + ": " + check.faults.front() +
                                 " \"vantor info\" lists all damage.")
                    << "\n";
    }
}

} // namespace vantor
