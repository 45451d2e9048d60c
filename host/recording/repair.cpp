/** @file
 * Makes a recording complete that was not finished, or that has lost data.
 */
#include "recording/repair.h"

#include <algorithm>
#include <string>
#include <vector>

#include "recording/item_writer.h"
#include "recording/output_file.h"
#include "recording/sha512.h"
#include "recording/sigmf.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** Most frames that a program that is killed has written to some items only: it writes item after item. */
constexpr uint64_t most_unfinished_frames = 1;

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

/** Throws damaged_recording if frames would be removed that must be kept. */
void require_permission(const recording_check &check, frame_loss loss)
{
    const auto dropped = count_dropped(check);
    const auto reason = check.faults.empty() ? std::string() : " " + check.faults.front();
    if (dropped > 0 && check.frames == 0)
    {
        refuse_repair("no frame would be left." + reason + " Restore that file.");
    }
    if (dropped > most_unfinished_frames && loss == frame_loss::refused)
    {
        refuse_repair(std::to_string(dropped) +
                      " frames whose samples are complete in another file would be removed, and " +
                      std::to_string(check.frames) + " would be left." + reason +
                      " Restore that file, or use --drop-frames to remove these frames.");
    }
}

/** Throws damaged_recording if a recording cannot be repaired. */
void require_repairable(const recording_check &check, frame_loss loss)
{
    if (check.in_progress)
    {
        refuse_repair("another program is still writing it.");
    }
    if (check.documents.contradictory)
    {
        refuse_repair(check.faults.front() + " Which of them is right is unknown.");
    }
    for (const auto &found : check.items)
    {
        if (!found.data_size || !found.table_size || found.differs)
        {
            refuse_repair(check.faults.front());
        }
    }
    require_permission(check, loss);
}

/** Throws recording_error if a file is a symbolic link. */
void require_no_links(const recording_documents &documents)
{
    require_no_link_in_recording(collection_path(documents.directory));
    for (const auto &item : documents.items)
    {
        for (const char *extension : {".sigmf-meta", ".sigmf-data", ".frames.csv"})
        {
            require_no_link_in_recording(documents.directory / (item.name + extension));
        }
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
                          .digest = found.left_digest,
                          .table_digest = found.left_table_digest},
                         check.captures);
    return document;
}

/** The final collection. */
ordered_json final_collection(const recording_documents &documents, const std::vector<stream> &streams)
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
ordered_json announcing_collection(const recording_documents &documents, const std::vector<stream> &streams)
{
    auto document = final_collection(documents, streams);
    if (documents.collection.contains("core:streams"))
    {
        document["collection"]["core:streams"] = documents.collection["core:streams"];
    }
    announce_streams(document, streams);
    return document;
}

/** Writes the final documents. */
void write_final_documents(const recording_check &check)
{
    const auto &directory = check.documents.directory;
    std::vector<stream> streams;
    std::vector<file_text> files(1);
    for (size_t i = 0; i < check.items.size(); ++i)
    {
        const auto &name = check.documents.items[i].name;
        files.push_back(
            {.path = directory / (name + ".sigmf-meta"), .text = final_document(check, i).dump(2) + "\n"});
        streams.push_back({.name = name, .digest = sha512_of(files.back().text)});
    }
    files.front() = {.path = collection_path(directory),
                     .text = announcing_collection(check.documents, streams).dump(2) + "\n"};
    files.push_back({.path = collection_path(directory),
                     .text = final_collection(check.documents, streams).dump(2) + "\n"});
    replace_files(files);
}

/** Shortens a frame table to the rows of the frames that are left. */
void shorten_table(const std::filesystem::path &path, const recording_check &check, size_t index)
{
    if (check.frames == 0)
    {
        // Also the head may be incomplete.
        replace_files({{.path = path, .text = std::string(frame_table_head)}});
        return;
    }
    shorten_file(path, check.items[index].left_table_size);
}

/** Removes everything after the frames that are left; returns the number of bytes of samples. */
uint64_t remove_rest(const recording_check &check)
{
    uint64_t removed = 0;
    for (size_t i = 0; i < check.items.size(); ++i)
    {
        const auto &item = check.documents.items[i];
        const auto base = check.documents.directory / item.name;
        const auto length = check.frames * item.layout.frame_length * sizeof(sample);
        shorten_file(base.string() + ".sigmf-data", length);
        shorten_table(base.string() + ".frames.csv", check, i);
        removed += *check.items[i].data_size - length;
    }
    return removed;
}

} // namespace

repair_result repair_recording(const std::filesystem::path &place, frame_loss loss,
                               const check_progress &progress)
{
    const auto before = check_recording(place, progress);
    if (before.finished && before.faults.empty())
    {
        return {.changed = false, .frames = before.frames};
    }
    require_repairable(before, loss);
    require_no_links(before.documents);
    const auto removed = remove_rest(before);
    write_final_documents(before);
    const auto after = check_recording(before.documents.directory, progress);
    if (!after.finished || !after.faults.empty() || after.frames != before.frames)
    {
        throw damaged_recording("The repaired recording differs from what was written: check the disk. " +
                                (after.faults.empty() ? std::string() : after.faults.front()));
    }
    return {.changed = true, .frames = after.frames, .dropped = count_dropped(before), .removed = removed};
}

} // namespace vantor
