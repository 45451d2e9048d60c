/** @file
 * Compares the files of a recording with what was recorded.
 */
#include "recording/recording_check.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "recording/gap_watch.h"
#include "recording/input_file.h"
#include "recording/item_writer.h"
#include "recording/number_text.h"
#include "recording/recorded_captures.h"
#include "recording/sha512.h"
#include "recording/sigmf.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** Bytes that are read at once. */
constexpr size_t read_bytes = 65536;

/** "3 of 4 frames". */
std::string part_of(uint64_t part, uint64_t all)
{
    return std::to_string(part) + " of " + std::to_string(all) + " frames";
}

/** Does the work of check_recording(). */
class checker
{
public:
    checker(recording_documents documents, bool in_progress, const check_progress &progress,
            const check_stop &stop, check_scope scope)
        : progress_(progress), stop_(stop), scope_(scope),
          documented_(std::ranges::any_of(documents.items, is_finished)),
          no_gaps_(read_captures(documents),
                   period_of_unlisted_gaps(documents.session, documented_, read_captures(documents))),
          gaps_(no_gaps_)
    {
        check_.documents = std::move(documents);
        check_.faults = check_.documents.faults;
        check_.in_progress = in_progress;
    }

    /** Checks everything. */
    recording_check run()
    {
        read_state();
        check_.block_frames = read_block_frames(items());
        for (const auto &item : items())
        {
            check_.items.push_back(measure(item));
        }
        check_.frames = frames_left();
        for (size_t i = 0; i < items().size(); ++i)
        {
            check_.finished ? compare_with_documents(i) : compare_with_others(i);
        }
        for (size_t i = 0; i < items().size(); ++i)
        {
            measure_rows_left(items()[i], check_.items[i]);
            read(i);
        }
        find_captures();
        compare_streams();
        read_truth();
        return std::move(check_);
    }

private:
    [[nodiscard]] const std::vector<recorded_item> &items() const
    {
        return check_.documents.items;
    }

    [[nodiscard]] static uint64_t frame_size(const recorded_item &item)
    {
        return item.layout.frame_length * sizeof(sample);
    }

    [[nodiscard]] std::filesystem::path samples_of(const recorded_item &item) const
    {
        return check_.documents.directory / (item.name + ".sigmf-data");
    }

    [[nodiscard]] std::filesystem::path table_of(const recorded_item &item) const
    {
        return check_.documents.directory / (item.name + ".frames.csv");
    }

    /** Gives the caller the opportunity to end the check. */
    void allow_stop() const
    {
        if (stop_)
        {
            stop_();
        }
    }

    void add_fault(std::string text)
    {
        check_.faults.push_back(std::move(text));
    }

    /** Reads from the documents whether the recording is finished, and with how many frames. */
    void read_state()
    {
        bool all = true;
        for (const auto &item : items())
        {
            all = all && (item.document.is_null() || is_finished(item));
        }
        check_.finished = all && documented_ && !check_.documents.collection.contains(next_streams_member);
        for (const auto &item : items())
        {
            if (check_.finished && is_finished(item))
            {
                compare_number(item, item.document["global"]["vantor:frames"].get<uint64_t>());
            }
        }
    }

    /** Compares the number of frames in the metadata of an item with that of the items before. */
    void compare_number(const recorded_item &item, uint64_t frames)
    {
        if (check_.recorded && *check_.recorded != frames)
        {
            add_fault(item.name + ".sigmf-meta announces " + std::to_string(frames) + " frames, not " +
                      std::to_string(*check_.recorded) + " like the other items.");
        }
        check_.recorded = std::min(check_.recorded.value_or(frames), frames);
    }

    /** Measures the files of an item. */
    checked_item measure(const recorded_item &item)
    {
        checked_item found{.data_size = {},
                           .table_size = {},
                           .table_head = frame_table_head,
                           .left_digest = {},
                           .left_table_digest = {},
                           .figures = {},
                           .level = item_statistics(item.layout)};
        try
        {
            found.data_size = input_file(samples_of(item)).size();
            found.frames = frame_size(item) == 0 ? 0 : *found.data_size / frame_size(item);
        }
        catch (const bad_recording &failure)
        {
            add_fault(failure.what());
        }
        measure_table(item, found);
        return found;
    }

    /** Measures the frame table of an item. */
    void measure_table(const recorded_item &item, checked_item &found)
    {
        try
        {
            found.table_size = input_file(table_of(item)).size();
            frame_table table(table_of(item));
            found.table_head = table.head();
            found.rows_size = table.position();
            while (const auto row = table.next())
            {
                add_row(item, found, *row);
                ++found.rows;
                found.rows_size = table.position();
            }
        }
        catch (const bad_recording &failure)
        {
            add_fault(failure.what());
        }
        found.left_table_size = found.rows_size;
    }

    /** Adds a row of the table of an item to its figures, and to the gaps, which are those of the first item.
     */
    void add_row(const recorded_item &item, checked_item &found, const frame_row &row)
    {
        allow_stop();
        found.figures.add(row);
        if (&item == &items().front())
        {
            gaps_.add(row.tick, row.frame_delayed);
        }
    }

    /** Measures the rows of the frames that are left, if the frame table of an item has more of them. */
    void measure_rows_left(const recorded_item &item, checked_item &found)
    {
        if (!found.table_size || (check_.frames > 0 && check_.frames == found.rows))
        {
            return;
        }
        found.figures = {};
        found.left_table_size = found.table_head.size();
        if (&item == &items().front())
        {
            gaps_ = no_gaps_;
        }
        if (check_.frames == 0)
        {
            return;
        }
        frame_table table(table_of(item));
        for (uint64_t number = 0; number < check_.frames; ++number)
        {
            add_row(item, found, table.require());
        }
        found.left_table_size = table.position();
    }

    /** The number of frames that are complete in every item. */
    [[nodiscard]] uint64_t frames_left() const
    {
        auto least = check_.items.empty() ? 0 : std::numeric_limits<uint64_t>::max();
        for (const auto &found : check_.items)
        {
            least = std::min({least, found.frames, found.rows});
        }
        return std::min(least, check_.recorded.value_or(least));
    }

    /** Compares the files of an item with the number of frames that the documents announce. */
    void compare_with_documents(size_t index)
    {
        const auto &found = check_.items[index];
        const auto &name = items()[index].name;
        const auto expected = *check_.recorded * frame_size(items()[index]);
        if (found.data_size && *found.data_size < expected)
        {
            add_fault(name + ".sigmf-data lacks " + std::to_string(expected - *found.data_size) +
                      " bytes: it contains " + part_of(found.frames, *check_.recorded) + ".");
        }
        else if (found.data_size && *found.data_size > expected)
        {
            add_fault(name + ".sigmf-data has " + std::to_string(*found.data_size - expected) +
                      " bytes after the last frame.");
        }
        if (found.table_size && found.rows != *check_.recorded)
        {
            add_fault(name + ".frames.csv has " + std::to_string(found.rows) + " correct rows for " +
                      std::to_string(*check_.recorded) + " frames.");
        }
        else if (found.rows_size > 0 && *found.table_size > found.rows_size)
        {
            add_fault(name + ".frames.csv has " + std::to_string(*found.table_size - found.rows_size) +
                      " bytes after the last row.");
        }
    }

    /**
     * Compares the files of an item of a recording that is not finished with those of the other items: a
     * program that is killed has written at most one more block of rows, and one more block of other items.
     */
    void compare_with_others(size_t index)
    {
        if (check_.in_progress)
        {
            // The files have been measured one after the other, and grow.
            return;
        }
        const auto &found = check_.items[index];
        const auto &name = items()[index].name;
        uint64_t most = found.rows;
        for (const auto &other : check_.items)
        {
            most = std::max(most, other.frames);
        }
        most -= std::min(most, check_.block_frames);
        if (found.data_size && found.frames < most)
        {
            add_fault(name + ".sigmf-data contains " + part_of(found.frames, most) + ".");
        }
        if (found.table_size && found.rows < std::max(found.frames, most))
        {
            add_fault(name + ".frames.csv has correct rows for " +
                      part_of(found.rows, std::max(found.frames, most)) + ".");
        }
    }

    /** Reads the frames of an item that are left, and compares the digest of all that were recorded. */
    void read(size_t index)
    {
        const auto &item = items()[index];
        auto &found = check_.items[index];
        if (!found.data_size || !found.table_size)
        {
            return;
        }
        const input_file data(samples_of(item));
        sha512 digest;
        scope_ == check_scope::damage ? read_samples(item, data, digest)
                                      : read_frames(item, data, found, digest);
        found.left_digest = digest.digest();
        const auto recorded = check_.recorded.value_or(0) * frame_size(item);
        if (is_finished(item) && check_.recorded && *found.data_size >= recorded)
        {
            add_bytes(data, check_.frames * frame_size(item), recorded, digest);
            compare_digest(item, found, "core:sha512", digest.digest(),
                           "The samples in " + item.name + ".sigmf-data");
        }
        compare_table(item, found);
    }

    /** Compares the digest of a file with that in the metadata, if there is one. */
    void compare_digest(const recorded_item &item, checked_item &found, const char *member,
                        const std::string &digest, const std::string &what)
    {
        const auto &global = item.document["global"];
        if (global.contains(member) && global[member] != digest)
        {
            found.differs = true;
            add_fault(what + " differ from those that were recorded.");
        }
    }

    /** Computes the digest of the rows that are left, and compares that of all rows that were recorded. */
    void compare_table(const recorded_item &item, checked_item &found)
    {
        const input_file table(table_of(item));
        // Without frames, also the head may be incomplete: a repair writes it again.
        found.left_table_digest =
            check_.frames > 0 ? digest_of(table, found.left_table_size) : sha512_of(found.table_head);
        if (is_finished(item) && found.rows > 0 && check_.recorded == found.rows)
        {
            const bool all_left = check_.frames == found.rows;
            compare_digest(item, found, table_digest_member,
                           all_left ? found.left_table_digest : digest_of(table, found.rows_size),
                           "The rows in " + item.name + ".frames.csv");
        }
    }

    /** The digest of the start of a file. */
    [[nodiscard]] std::string digest_of(const input_file &file, uint64_t end)
    {
        sha512 digest;
        add_bytes(file, 0, end, digest);
        return digest.digest();
    }

    /** Reads the samples of the frames of an item that are left, without computing levels. */
    void read_samples(const recorded_item &item, const input_file &data, sha512 &digest)
    {
        const uint64_t frames_before = frames_read_;
        const uint64_t end = check_.frames * frame_size(item);
        for (uint64_t position = 0; position < end; position += read_bytes)
        {
            const uint64_t stop = std::min(end, position + read_bytes);
            if (add_bytes(data, position, stop, digest) < stop)
            {
                throw bad_recording("The recording changes while it is read.");
            }
            report_progress(frames_before + stop / frame_size(item));
        }
    }

    /** Reports how many frames have been read, in all items. */
    void report_progress(uint64_t frames_read)
    {
        frames_read_ = frames_read;
        if (progress_)
        {
            progress_(frames_read_, check_.frames * items().size());
        }
    }

    /** Adds a frame to the levels of an item. */
    static void add_frame(checked_item &found, const frame_row &row, std::span<const sample> samples,
                          bool after_gap)
    {
        const bool valid = row.data_valid.value_or(true);
        if (after_gap || !valid)
        {
            found.level.restart();
        }
        if (valid)
        {
            found.level.add(samples);
        }
    }

    /** Reads the frames of an item that are left, and computes levels. */
    void read_frames(const recorded_item &item, const input_file &data, checked_item &found, sha512 &digest)
    {
        if (check_.frames == 0)
        {
            return;
        }
        frame_table table(table_of(item));
        // The gaps are those of the first item.
        frame_table first(table_of(items().front()));
        gap_watch watch;
        gap_finder gaps = no_gaps_;
        std::vector<sample> samples(item.layout.frame_length);
        const auto bytes = std::as_writable_bytes(std::span(samples));
        for (uint64_t number = 0; number < check_.frames; ++number)
        {
            if (data.read(number * bytes.size(), bytes) < bytes.size())
            {
                throw bad_recording("The recording changes while it is read.");
            }
            allow_stop();
            digest.update(bytes);
            const auto tick = first.require();
            gaps.add(tick.tick, tick.frame_delayed);
            const auto &part = gaps.found().captures().back();
            const bool after_gap =
                watch.next(gaps.found().missing(), part.begins && part.first_frame == number);
            add_frame(found, table.require(), samples, after_gap);
            report_progress(frames_read_ + 1);
        }
    }

    /** Takes the captures from the documents, or from the ticks if the recording was never finished. */
    void find_captures()
    {
        check_.captures = documented_ ? read_captures(check_.documents) : gaps_.found().captures();
        while (check_.captures.size() > 1 && check_.captures.back().first_frame >= check_.frames)
        {
            check_.captures.pop_back();
        }
        check_.missing = gaps_.found().missing();
        check_.unlisted_breaks = read_unlisted_breaks(items());
        if (check_.recorded == check_.frames)
        {
            compare_missing();
        }
    }

    /** Takes the number of missing frames from the documents: it includes gaps that are not listed. If all
     * are listed, compares it with the captures. */
    void compare_missing()
    {
        const bool all_listed = check_.captures.size() < most_captures;
        const auto found = check_.missing;
        for (const auto &item : items())
        {
            const auto missing =
                is_finished(item) ? item.document["global"].value("vantor:frames_missing", found) : found;
            if (missing < found || (all_listed && missing != found))
            {
                add_fault(item.name + ".sigmf-meta says that " + counted(missing, "frame") +
                          " are missing, but its captures and ticks show " + std::to_string(found) + ".");
            }
            else
            {
                check_.missing = missing;
            }
        }
    }

    /** Adds a part of a file to a digest; returns where it ends, which is earlier if the file is shorter. */
    uint64_t add_bytes(const input_file &data, uint64_t position, uint64_t end, sha512 &digest)
    {
        while (position < end)
        {
            allow_stop();
            const auto wanted = std::min<uint64_t>(buffer_.size(), end - position);
            const auto count = data.read(position, std::span(buffer_).first(wanted));
            digest.update(std::span(buffer_).first(count));
            position += count;
            end = count == wanted ? end : position;
        }
        return position;
    }

    /** Compares the digests of the metadata with those in the collection. */
    void compare_streams()
    {
        const auto &collection = check_.documents.collection;
        if (collection.is_null() || check_.in_progress)
        {
            // A program that still writes may have replaced some documents since others were read.
            return;
        }
        for (size_t i = 0; i < items().size(); ++i)
        {
            const bool listed = is_listed(collection, i, items()[i].name, check_.documents.digests[i]);
            // A program that is killed during its last step has replaced only some of the documents.
            const bool replaced = !check_.finished && is_finished(items()[i]);
            if (!listed && !replaced && !items()[i].document.is_null())
            {
                add_fault(items()[i].name + ".sigmf-meta differs from what was recorded.");
            }
        }
    }

    /** Compares the truth with the frames that are left. */
    void read_truth()
    {
        const bool has_tables = std::ranges::all_of(
            check_.items, [](const checked_item &found) { return found.table_size.has_value(); });
        if (check_.documents.session.truth.is_null() || !has_tables)
        {
            return;
        }
        check_.truth = check_truth(check_.documents, check_.frames, check_.finished, {}, stop_);
        for (const auto &fault : check_.truth->faults)
        {
            add_fault(fault);
        }
    }

    recording_check check_;
    const check_progress &progress_;
    const check_stop &stop_;
    check_scope scope_;
    bool documented_;    /**< the documents list the gaps */
    gap_finder no_gaps_; /**< before the first frame */
    gap_finder gaps_;    /**< of the rows of the first item that have been read */
    uint64_t frames_read_ = 0;
    std::vector<std::byte> buffer_ = std::vector<std::byte>(read_bytes);
};

/** Whether another program is still writing a file. */
bool is_being_written(const std::filesystem::path &path)
{
    try
    {
        return input_file(path).is_being_written();
    }
    catch (const bad_recording &)
    {
        // Reported when it is read.
        return false;
    }
}

/** Whether "vantor record" is still writing samples in a directory. */
bool is_being_recorded(const std::filesystem::path &directory)
{
    std::error_code failure;
    const std::filesystem::directory_iterator entries(directory, failure);
    return std::any_of(begin(entries), end(entries), [&](const auto &entry) {
        return entry.path().extension() == ".sigmf-data" && is_being_written(entry.path());
    });
}

} // namespace

recording_check check_recording(const std::filesystem::path &place, const check_progress &progress,
                                const check_stop &stop, check_scope scope)
{
    // First: if the recorder has ended, the documents that are read now are the final ones.
    const bool in_progress = is_being_recorded(recording_directory(place));
    return checker(read_documents(place), in_progress, progress, stop, scope).run();
}

} // namespace vantor
