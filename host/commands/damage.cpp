/** @file
 * Reports damage of recordings.
 */
#include "commands/damage.h"

#include <exception>
#include <ostream>
#include <utility>

#include "commands/check_progress.h"
#include "recording/printable.h"

namespace vantor
{

namespace
{

/** Ends a check whose result nobody needs any more. */
class check_abandoned : public std::exception
{
};

/** Prints a warning if a recording is damaged. */
void warn_of_faults(const recording_check &check, const command_streams &streams)
{
    if (!check.faults.empty())
    {
        streams.err << "vantor: warning: "
                    << printable(describe_damage(check) + ": " + check.faults.front() +
                                 " \"vantor info\" lists all damage.")
                    << "\n";
    }
}

} // namespace

std::string describe_damage(const recording_check &check)
{
    const auto recorded = check.recorded ? " of " + std::to_string(*check.recorded) : std::string();
    return check.documents.directory.string() + " is damaged; " + std::to_string(check.frames) + recorded +
           " frames are left";
}

void warn_of_damage(const recording_reader &recording, const command_streams &streams,
                    const std::function<void()> &stop)
{
    warn_of_faults(check_recording(recording.directory(), show_progress(streams), stop, check_scope::damage),
                   streams);
}

background_check::background_check(const std::filesystem::path &directory, std::function<void()> stop)
    : check_(std::async(std::launch::async, [this, directory, stop = std::move(stop)] {
          const auto stop_or_abandon = [&] {
              if (abandoned_)
              {
                  throw check_abandoned();
              }
              stop();
          };
          return check_recording(directory, {}, stop_or_abandon, check_scope::damage);
      }))
{
}

background_check::~background_check()
{
    abandoned_ = true;
    if (check_.valid())
    {
        check_.wait();
    }
}

void background_check::warn(const command_streams &streams)
{
    warn_of_faults(check_.get(), streams);
}

} // namespace vantor
