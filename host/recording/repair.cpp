/** @file
 * Makes a recording complete that was not finished, or that has lost data.
 */
#include "recording/repair.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "recording/file_replacement.h"
#include "recording/input_file.h"
#include "recording/item_writer.h"
#include "recording/output_file.h"
#include "recording/sha512.h"
#include "recording/sigmf.h"
#include "recording/truth_check.h"
#include "recording/truth_writer.h"
#include "vantor/configuration.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** Throws damaged_recording. */
[[noreturn]] void refuse_repair(const std::string &reason)
{
    throw damaged_recording("The recording cannot be repaired, and was not changed: " + reason);
}

/** Number of frames that would be removed although their samples are complete in an item. */
uint64_t count_dropped(const recording_check &check)
{
    uint64_t most = 0;
    for (const auto &found : check.items)
    {
        most = std::max(most, found.frames);
    }
    return std::min(most, check.recorded.value_or(most)) - check.frames;
}

/** Why frames must be kept that would be removed; nothing if there are none. */
std::optional<std::string> frames_to_keep(const recording_check &check, frame_loss loss)
{
    const auto dropped = count_dropped(check);
    const auto reason = check.faults.empty() ? std::string() : " " + check.faults.front();
    if (dropped > 0 && check.frames == 0)
    {
        return "no frame would be left." + reason + " Restore that file.";
    }
    // A program that is killed has written at most one block to some items only: it writes item after item.
    if (dropped > check.block_frames && loss == frame_loss::refused)
    {
        return std::to_string(dropped) +
               " frames whose samples are complete in another file would be removed, and " +
               std::to_string(check.frames) + " would be left." + reason +
               " Restore that file, or use --drop-frames to remove these frames.";
    }
    return std::nullopt;
}

/** The paths of the documents of a recording. */
std::vector<std::filesystem::path> document_paths(const recording_documents &documents)
{
    std::vector<std::filesystem::path> paths = {collection_path(documents.directory)};
    for (const auto &item : documents.items)
    {
        paths.push_back(documents.directory / (item.name + ".sigmf-meta"));
    }
    return paths;
}

/** The paths of the samples and of the frame tables of a recording. */
std::vector<std::filesystem::path> data_paths(const recording_documents &documents)
{
    std::vector<std::filesystem::path> paths;
    for (const auto &item : documents.items)
    {
        paths.push_back(documents.directory / (item.name + ".sigmf-data"));
        paths.push_back(documents.directory / (item.name + ".frames.csv"));
    }
    return paths;
}

/** Whether a recording has the truth of simulated sensors. */
bool has_truth(const recording_documents &documents)
{
    return !documents.session.truth.is_null();
}

/** The path of the truth of a recording. */
std::filesystem::path truth_path(const recording_documents &documents)
{
    return documents.directory / truth_file_name;
}

/** Throws recording_error if a file cannot be changed, for example because it is a symbolic link. */
void require_changeable(const recording_documents &documents)
{
    for (const auto &path : document_paths(documents))
    {
        require_replaceable(path, link_rule::refused);
    }
    for (const auto &path : data_paths(documents))
    {
        require_replaceable(path, link_rule::refused);
        require_shortenable(path);
    }
    std::error_code failure;
    if (has_truth(documents) && exists(symlink_status(truth_path(documents), failure)))
    {
        require_replaceable(truth_path(documents), link_rule::refused);
    }
}

/** The final metadata of an item. */
ordered_json final_document(const recording_check &check, size_t index)
{
    const auto &documents = check.documents;
    const auto &item = documents.items[index];
    const auto &found = check.items[index];
    auto document = item.document.is_null() ? item_document(documents.session, index, {}, check.captures)
                                            : ordered_json(item.document);
    finish_item_document(document, documents.session, index,
                         {.frames = check.frames,
                          .seconds = found.figures.seconds,
                          .frames_missing = check.missing,
                          .unlisted_breaks = check.unlisted_breaks,
                          .digest = found.left_digest,
                          .table_digest = found.left_table_digest},
                         check.captures);
    return document;
}

/** The final collection. */
ordered_json final_collection(const recording_documents &documents,
                              const std::vector<collection_stream> &streams)
{
    auto document = collection_document(documents.session, streams);
    auto &collection = document["collection"];
    if (!documents.collection.is_null())
    {
        collection = documents.collection;
        collection["core:streams"] = describe_streams(streams);
        collection.erase(next_streams_member);
    }
    collection["vantor:repaired"] = true;
    return document;
}

/** The present collection, which announces the final metadata of the items. */
ordered_json announcing_collection(const recording_documents &documents,
                                   const std::vector<collection_stream> &streams)
{
    auto document = final_collection(documents, streams);
    if (documents.collection.contains("core:streams"))
    {
        document["collection"]["core:streams"] = documents.collection["core:streams"];
    }
    announce_streams(document, streams);
    return document;
}

/** Throws damaged_recording if a document could not be read any more. */
void require_readable(const std::string &text, const std::string &name)
{
    try
    {
        static_cast<void>(parse_json_text(text, name));
    }
    catch (const configuration_error &failure)
    {
        refuse_repair(failure.what());
    }
    if (text.size() > most_document_bytes)
    {
        refuse_repair(name + " would be too large: it would have more than 16 MB.");
    }
}

/** A file with a document: without spaces if it would be too large with them. */
file_text file_of(const std::filesystem::path &path, const ordered_json &document)
{
    constexpr int indentation = 2;
    auto text = document.dump(indentation) + "\n";
    if (text.size() > most_document_bytes)
    {
        text = document.dump() + "\n";
    }
    require_readable(text, path.filename().string());
    return {.path = path, .text = std::move(text)};
}

/** The final documents, in the order in which they must be written. */
std::vector<file_text> final_documents(const recording_check &check)
{
    const auto &directory = check.documents.directory;
    std::vector<collection_stream> streams;
    std::vector<file_text> files(1);
    for (size_t i = 0; i < check.items.size(); ++i)
    {
        const auto &name = check.documents.items[i].name;
        files.push_back(file_of(directory / (name + ".sigmf-meta"), final_document(check, i)));
        streams.push_back({.name = name, .digest = sha512_of(files.back().text)});
    }
    files.front() = file_of(collection_path(directory), announcing_collection(check.documents, streams));
    files.push_back(file_of(collection_path(directory), final_collection(check.documents, streams)));
    return files;
}

/** Shortens a frame table to the rows of the frames that are left. */
void shorten_table(const std::filesystem::path &path, const recording_check &check, size_t index)
{
    if (check.frames == 0)
    {
        // Also the head may be incomplete.
        replace_files({{.path = path, .text = std::string(check.items[index].table_head)}},
                      link_rule::refused);
        return;
    }
    shorten_file(path, check.items[index].left_table_size);
}

/** Removes everything after the frames that are left. */
removed_bytes remove_rest(const recording_check &check)
{
    removed_bytes removed;
    for (size_t i = 0; i < check.items.size(); ++i)
    {
        const auto &item = check.documents.items[i];
        const auto base = check.documents.directory / item.name;
        const auto length = check.frames * item.layout.frame_length * sizeof(sample);
        shorten_file(base.string() + ".sigmf-data", length);
        shorten_table(base.string() + ".frames.csv", check, i);
        removed.samples += *check.items[i].data_size - length;
        removed.tables +=
            *check.items[i].table_size - std::min(*check.items[i].table_size, check.items[i].left_table_size);
    }
    return removed;
}

/** Removes the truth from what the documents will say about a session. */
void forget_truth(recording_documents &documents)
{
    documents.session.truth = nullptr;
    if (documents.collection.is_object())
    {
        documents.collection.erase(truth_member);
    }
    for (auto &item : documents.items)
    {
        const nlohmann::json::json_pointer copy("/global/vantor:session");
        if (item.document.is_object() && item.document.contains(copy))
        {
            item.document[copy].erase(truth_member);
        }
    }
}

/** Replaces the truth by the lines that are right. */
void repair_truth(const recording_check &before)
{
    if (before.truth && before.truth->readable && !before.truth->whole)
    {
        rewrite_truth(before.documents, before.frames);
    }
}

/** Repairs a recording whose damage is known. */
repair_result repair_damage(recording_check before, frame_loss loss, const check_progress &progress)
{
    const bool truth_lost = before.truth && before.truth->lost;
    if (before.finished && before.faults.empty())
    {
        return {.changed = false, .frames = before.frames};
    }
    if (const auto obstacle = repair_obstacle(before, loss))
    {
        refuse_repair(*obstacle);
    }
    require_changeable(before.documents);
    if (truth_lost)
    {
        forget_truth(before.documents);
    }
    const auto documents = final_documents(before);
    const auto removed = remove_rest(before);
    repair_truth(before);
    replace_files(documents, link_rule::refused);
    if (truth_lost)
    {
        // What is left of it does not matter.
        std::error_code failure;
        std::filesystem::remove(truth_path(before.documents), failure);
    }
    const auto after = check_recording(before.documents.directory, progress, {}, check_scope::damage);
    if (!after.finished || !after.faults.empty() || after.frames != before.frames)
    {
        throw damaged_recording("The repaired recording differs from what was written: check the disk. " +
                                (after.faults.empty() ? std::string() : after.faults.front()));
    }
    return {.changed = true,
            .frames = after.frames,
            .dropped = count_dropped(before),
            .removed = removed,
            .has_truth = before.truth.has_value(),
            .truth_lines = before.truth ? before.truth->surplus : 0,
            .truth_lost = truth_lost};
}

/** Removes the temporary files of programs that were killed. */
void clean_up(const recording_documents &documents)
{
    auto paths = document_paths(documents);
    std::ranges::copy(data_paths(documents), std::back_inserter(paths));
    paths.push_back(truth_path(documents));
    remove_temporary_files(documents.directory, paths);
}

} // namespace

std::optional<std::string> repair_obstacle(const recording_check &check, frame_loss loss)
{
    if (check.in_progress)
    {
        return "another program is still writing it.";
    }
    if (check.documents.contradictory)
    {
        return check.faults.front() + " Which of them is right is unknown.";
    }
    const auto is_lost = [](const checked_item &found) {
        return !found.data_size || !found.table_size || found.differs;
    };
    if (std::ranges::any_of(check.items, is_lost))
    {
        return check.faults.front();
    }
    if (check.truth && !check.truth->readable && !check.truth->lost)
    {
        return check.truth->faults.front();
    }
    return frames_to_keep(check, loss);
}

repair_result repair_recording(const std::filesystem::path &place, frame_loss loss,
                               const check_progress &progress)
{
    const auto before = check_recording(place, progress, {}, check_scope::damage);
    const directory_in_use directory(before.documents.directory);
    const auto result = repair_damage(before, loss, progress);
    // Another repair would lose the files that it is about to put into place.
    if (!before.in_progress && directory.is_last_user())
    {
        clean_up(before.documents);
    }
    return result;
}

} // namespace vantor
