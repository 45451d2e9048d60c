/** @file
 * Writes a recording while its session is being received.
 */
#include "vantor/recording_writer.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <limits>
#include <string>
#include <utility>

#include "recording/capture_list.h"
#include "recording/file_replacement.h"
#include "recording/item_writer.h"
#include "recording/new_directory.h"
#include "recording/output_file.h"
#include "recording/recording_documents.h"
#include "recording/sha512.h"
#include "recording/sigmf.h"
#include "recording/truth_writer.h"
#include "recording/utc_text.h"
#include "vantor/configuration.h"
#include "vantor/errors.h"
#include "vantor/recording_error.h"

namespace vantor
{

recording_writer::recording_writer(std::filesystem::path directory, session_description session,
                                   recording_start start)
    : directory_(std::move(directory)), session_(std::move(session)),
      captures_(std::make_unique<capture_list>()),
      missing_before_(start == recording_start::with_stream ? 0 : std::numeric_limits<uint64_t>::max()),
      block_frames_(frames_per_block(session_.metadata))
{
    if (list_items(session_.configuration).size() != session_.metadata.items.size())
    {
        throw protocol_error("The server measures " + std::to_string(session_.metadata.items.size()) +
                             " items, but the configuration has a different number.");
    }
    // First, so that nothing is created if libcrypto fails.
    std::vector<item_digests> digests(session_.metadata.items.size());
    make_new_directory(directory_);
    captures_->set_time(utc_text(std::chrono::system_clock::now()));
    for (size_t i = 0; i < digests.size(); ++i)
    {
        items_.emplace_back(directory_ / item_name(session_.metadata.items[i]), i,
                            session_.server.ticks_per_second, std::move(digests[i]));
    }
    if (!session_.truth.is_null())
    {
        truth_ = std::make_unique<truth_writer>(directory_ / truth_file_name, session_.truth);
    }
    write_documents(false);
}

recording_writer::recording_writer(recording_writer &&other) noexcept = default;
recording_writer &recording_writer::operator=(recording_writer &&other) noexcept = default;
recording_writer::~recording_writer() = default;

void recording_writer::begin_segment(const segment &next)
{
    captures_->begin(next);
    break_pending_ = true;
    for (auto &item : items_)
    {
        item.begin_segment(next.gap);
    }
}

void recording_writer::add(const frame &received, std::chrono::system_clock::time_point arrival)
{
    add(std::array{arrived_frame{.what = &received, .arrival = arrival}});
}

void recording_writer::add(std::span<const arrived_frame> frames)
{
    while (!frames.empty())
    {
        const auto block = frames.first(break_pending_ ? 1 : std::min(frames.size(), block_frames_));
        write_block(block);
        frames = frames.subspan(block.size());
        // So that what a killed recorder leaves shows the break.
        if (std::exchange(break_pending_, false))
        {
            write_documents(false);
        }
    }
}

/** Writes a block; if that fails, those of its frames that can be written. */
void recording_writer::write_block(std::span<const arrived_frame> block)
{
    try
    {
        append(block);
    }
    catch (const recording_error &)
    {
        if (block.size() == 1)
        {
            throw;
        }
        for (size_t i = 0; i < block.size(); ++i)
        {
            write_block(block.subspan(i, 1));
        }
        return;
    }
    for (auto &item : items_)
    {
        item.commit();
    }
    if (truth_)
    {
        truth_->commit();
    }
    note_captures(block);
    frames_ += block.size();
}

/** Appends a block to all files, or to none. */
void recording_writer::append(std::span<const arrived_frame> block)
{
    try
    {
        for (auto &item : items_)
        {
            item.append(block);
        }
        if (truth_)
        {
            truth_->append(frames_, block);
        }
    }
    catch (...)
    {
        if (truth_)
        {
            truth_->rollback();
        }
        for (auto &item : items_)
        {
            item.rollback();
        }
        throw;
    }
}

/** Notes which captures begin with frames. */
void recording_writer::note_captures(std::span<const arrived_frame> block)
{
    for (const auto &arrived : block)
    {
        if (captures_->add(belonging(arrived.what->missing())))
        {
            captures_->set_time(utc_text(arrived.arrival));
        }
    }
}

void recording_writer::sync()
{
    for (auto &item : items_)
    {
        item.require_existing();
        item.sync();
    }
    if (truth_)
    {
        truth_->sync();
    }
}

void recording_writer::finish()
{
    if (truth_)
    {
        truth_->require_whole();
        truth_->sync();
    }
    write_documents(true);
}

uint64_t recording_writer::missing() const noexcept
{
    return captures_->missing();
}

double recording_writer::seconds() const noexcept
{
    return items_.empty() ? 0.0 : items_.front().seconds();
}

uint64_t recording_writer::data_length() const noexcept
{
    uint64_t length = 0;
    for (const auto &item : items_)
    {
        length += item.data_length();
    }
    return length;
}

/** How many of the frames missing in the stream belong to the recording. */
uint64_t recording_writer::belonging(uint64_t missing)
{
    // Less than before if this frame shows that the first one was only late.
    missing_before_ = std::min(missing_before_, missing);
    return missing - missing_before_;
}

/** Writes the documents of the items, and the collection with their digests: all of them or none. */
void recording_writer::write_documents(bool finished)
{
    // Otherwise the documents would come into a directory that is not this recording.
    std::for_each(items_.begin(), items_.end(), [](const item_writer &item) { item.require_in_place(); });
    std::vector<collection_stream> streams;
    std::vector<file_text> documents;
    for (size_t i = 0; i < items_.size(); ++i)
    {
        const item_state state{.frames = items_[i].frames(),
                               .block_frames = block_frames_,
                               .seconds = items_[i].seconds(),
                               .frames_missing = captures_->missing(),
                               .unlisted_breaks = captures_->unlisted_breaks(),
                               .digest = finished ? items_[i].digests().samples.digest() : std::string(),
                               .table_digest = finished ? items_[i].digests().table.digest() : std::string()};
        const auto name = item_name(session_.metadata.items[i]);
        documents.push_back(
            {.path = directory_ / (name + ".sigmf-meta"),
             .text = item_document(session_, i, state, captures_->captures()).dump(2) + "\n"});
        streams.push_back({.name = name, .digest = sha512_of(documents.back().text)});
    }
    const auto collection = collection_path(directory_);
    documents.push_back({.path = collection, .text = collection_document(session_, streams).dump(2) + "\n"});
    if (!streams_.empty())
    {
        auto announcement = collection_document(session_, streams_);
        announce_streams(announcement, streams);
        documents.insert(documents.begin(), {.path = collection, .text = announcement.dump(2) + "\n"});
    }
    replace_files(documents, link_rule::refused);
    streams_ = std::move(streams);
}

} // namespace vantor
