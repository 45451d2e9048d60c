/** @file
 * `vantor repair`.
 */
#include "commands/repair.h"

#include <memory>
#include <ostream>

#include "commands/check_progress.h"
#include "commands/common_options.h"
#include "recording/repair.h"

namespace vantor
{
namespace
{

constexpr const char *repair_footer = R"(Examples:
  vantor info recordings/garage
      shows how many frames are left
  vantor repair recordings/garage

This keeps the frames that are complete in every item and removes the rest, writes the missing documents, and reads
everything again to check it. Copy the directory first if you may need the rest.)";

/** Repairs a recording and prints what was changed. */
exit_code repair(const std::filesystem::path &recording, bool json, const command_streams &streams)
{
    const auto result = repair_recording(recording, show_progress(streams));
    if (json)
    {
        print_json(streams.out, {{"recording", recording.string()},
                                 {"changed", result.changed},
                                 {"frames", result.frames},
                                 {"bytes_removed", result.removed}});
    }
    else if (result.changed)
    {
        streams.out << result.frames << " frames are complete; bytes of samples removed: " << result.removed
                    << "\n";
    }
    else
    {
        streams.out << result.frames << " frames are complete; nothing to repair\n";
    }
    return exit_code::success;
}

} // namespace

command repair_command()
{
    struct repair_options
    {
        std::filesystem::path recording;
        bool json = false;
    };
    auto options = std::make_shared<repair_options>();
    return {.name = "repair",
            .help = "Complete a recording that was interrupted or damaged.",
            .footer = repair_footer,
            .options = {recording_argument(options->recording), json_flag(options->json)},
            .run = [options](const command_streams &streams) {
                return repair(options->recording, options->json, streams);
            }};
}

} // namespace vantor
