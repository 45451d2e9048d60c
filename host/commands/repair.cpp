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
#include "recording/printable.h"
#include "recording/recording_documents.h"
#include "recording/repair.h"
#include "vantor/board_collection.h"
#include "vantor/errors.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

constexpr const char *repair_footer = R"(Examples:
  vantor info recordings/garage
      shows how many frames are left
  vantor repair recordings/garage

This keeps the frames that are complete in every item and removes the rest, writes the missing documents, and reads
everything again to check it. If it would remove more than the last frame of an item, it changes nothing, and prints
how many frames would be lost. --drop-frames removes them; copy the directory first. Lines of the truth that are damaged,
repeated or of no frame are removed, and are counted. If the truth is lost, the rest is repaired without it.

Of several boards it repairs each, and lists them again in boards.sigmf-collection. If this file is missing or damaged,
it lists the recordings in the directories beside it.)";

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

/** Repairs a recording. */
repair_result repair(const std::filesystem::path &recording, const repair_options &options,
                     const command_streams &streams)
{
    const auto loss = options.drop_frames ? frame_loss::accepted : frame_loss::refused;
    return repair_recording(recording, loss, show_progress(streams));
}

/** What was changed, as JSON. */
ordered_json to_json(const std::filesystem::path &recording, const repair_result &result)
{
    return {{"recording", recording.string()},
            {"changed", result.changed},
            {"frames", result.frames},
            {"frames_removed", result.dropped},
            {"bytes_removed", result.removed.samples},
            {"table_bytes_removed", result.removed.tables},
            {"truth_lines_removed", result.truth_lines},
            {"truth_lost", result.truth_lost}};
}

/** What was changed, as a line of text. */
std::string to_text(const repair_result &result)
{
    const auto left = counted(result.frames, "frame") + " left; ";
    if (!result.changed)
    {
        return left + "nothing to repair";
    }
    return left + "removed: " + counted(result.dropped, "frame") + " complete in only some of the items, " +
           counted(result.removed.samples, "byte") + " of samples, " +
           counted(result.removed.tables, "byte") + " of frame tables" + describe_truth(result);
}

/** Repairs the recording of a board, and lists its documents; prints what was changed, or why nothing was. */
ordered_json repair_board(board_collection &collection, size_t index, const repair_options &options,
                          const command_streams &streams)
{
    const auto directory = collection.directory_of(index);
    std::string text;
    ordered_json outcome;
    try
    {
        const auto result = repair(directory, options, streams);
        collection.set_streams(index, listed_streams(read_documents(directory)));
        outcome = to_json(directory, result);
        text = to_text(result);
    }
    catch (const error &failure)
    {
        outcome = {{"recording", directory.string()}, {"failure", failure.what()}};
        text = std::string("not repaired: ") + failure.what();
    }
    if (!options.json)
    {
        streams.out << printable(collection.boards()[index].directory + ": " + text) << "\n";
    }
    return outcome;
}

/** The list of the boards. */
struct board_list_state
{
    board_collection collection;
    bool rebuilt = false; /**< because it is missing or damaged */
};

/** Reads the list of the boards, or finds them again. */
board_list_state read_or_rebuild(const std::filesystem::path &place)
try
{
    return {.collection = board_collection::read(place)};
}
catch (const damaged_recording &)
{
    return {.collection = board_collection::rebuild(place), .rebuilt = true};
}

/** Repairs the recordings of all boards, as far as possible, and the list of the boards. */
exit_code repair_boards(const repair_options &options, const command_streams &streams)
{
    auto [collection, rebuilt] = read_or_rebuild(options.recording);
    auto outcomes = ordered_json::array();
    bool failed = false;
    for (size_t i = 0; i < collection.boards().size(); ++i)
    {
        outcomes.push_back(repair_board(collection, i, options, streams));
        failed = failed || outcomes.back().contains("failure");
    }
    collection.write();
    if (options.json)
    {
        print_json(streams.out, {{"boards", outcomes}, {"list_rebuilt", rebuilt}});
    }
    else if (rebuilt)
    {
        streams.out << board_collection_file << ": lists the " << counted(outcomes.size(), "board")
                    << " again\n";
    }
    if (failed)
    {
        throw damaged_recording("Not all boards of " + options.recording.string() + " could be repaired.");
    }
    return exit_code::success;
}

/** Repairs a recording and prints what was changed. */
exit_code repair(const repair_options &options, const command_streams &streams)
{
    if (board_collection::is_at(options.recording))
    {
        return repair_boards(options, streams);
    }
    const auto result = repair(options.recording, options, streams);
    if (options.json)
    {
        print_json(streams.out, to_json(options.recording, result));
        return exit_code::success;
    }
    streams.out << to_text(result) << "\n";
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
