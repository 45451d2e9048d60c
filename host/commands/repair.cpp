/** @file
 * `vantor repair`.
 */
#include "commands/repair.h"

#include <memory>
#include <ostream>
#include <string>

#include "commands/check_progress.h"
#include "commands/common_options.h"
#include "recording/number_text.h"
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
everything again to check it. If it would remove more than the last frame of an item, it changes nothing, and prints
how many frames would be lost. --drop-frames removes them; copy the directory first. Lines of the truth that are damaged,
repeated or of no frame are removed, and are counted. If the truth is lost, the rest is repaired without it.)";

/** The options of `vantor repair`. */
struct repair_options
{
    std::filesystem::path recording;
    bool drop_frames = false;
    bool json = false;
};

/** What was removed of the truth, as the end of a sentence. */
std::string describe_truth(const repair_result &result)
{
    if (!result.has_truth)
    {
        return "";
    }
    if (result.truth_lost)
    {
        return "; the truth is lost: truth.jsonl was missing or empty, and the recording now has none";
    }
    return ", " + counted(result.truth_lines, "line") + " of the truth";
}

/** Repairs a recording and prints what was changed. */
exit_code repair(const repair_options &options, const command_streams &streams)
{
    const auto loss = options.drop_frames ? frame_loss::accepted : frame_loss::refused;
    const auto result = repair_recording(options.recording, loss, show_progress(streams));
    if (options.json)
    {
        print_json(streams.out, {{"recording", options.recording.string()},
                                 {"changed", result.changed},
                                 {"frames", result.frames},
                                 {"frames_removed", result.dropped},
                                 {"bytes_removed", result.removed.samples},
                                 {"table_bytes_removed", result.removed.tables},
                                 {"truth_lines_removed", result.truth_lines},
                                 {"truth_lost", result.truth_lost}});
        return exit_code::success;
    }
    streams.out << counted(result.frames, "frame") << " left; ";
    if (result.changed)
    {
        streams.out << "removed: " << counted(result.dropped, "frame")
                    << " complete in only some of the items, " << counted(result.removed.samples, "byte")
                    << " of samples, " << counted(result.removed.tables, "byte") << " of frame tables"
                    << describe_truth(result) << "\n";
    }
    else
    {
        streams.out << "nothing to repair\n";
    }
    return exit_code::success;
}

} // namespace

command repair_command()
{
    auto options = std::make_shared<repair_options>();
    return {.name = "repair",
            .help = "Complete a recording that was interrupted or damaged.",
            .footer = repair_footer,
            .options = {recording_argument(options->recording),
                        {.name = "--drop-frames",
                         .help = "Remove also frames whose samples are complete in an item",
                         .value = &options->drop_frames},
                        json_flag(options->json)},
            .run = [options](const command_streams &streams) { return repair(*options, streams); }};
}

} // namespace vantor
