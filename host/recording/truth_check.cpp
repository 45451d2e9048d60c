/** @file
 * Compares the truth in a recording with its frames.
 */
#include "recording/truth_check.h"

#include <optional>
#include <utility>

#include "recording/file_replacement.h"
#include "recording/number_text.h"
#include "recording/truth_writer.h"
#include "vantor/frame_table.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Reads the frame tables of all items, frame after frame. */
class tick_reader
{
public:
    tick_reader(const recording_documents &documents, uint64_t frames)
    {
        for (size_t i = 0; frames > 0 && i < documents.items.size(); ++i)
        {
            tables_.emplace_back(documents.directory / (documents.items[i].name + ".frames.csv"));
            rows_.push_back(tables_.back().require());
        }
    }

    /** The tick of an item in a frame; frames must be asked for in their order. */
    uint32_t tick(uint64_t frame, size_t item)
    {
        for (; frame_ < frame; ++frame_)
        {
            for (size_t i = 0; i < tables_.size(); ++i)
            {
                rows_[i] = tables_[i].require();
            }
        }
        return rows_.at(item).tick;
    }

private:
    std::vector<frame_table> tables_;
    std::vector<frame_row> rows_;
    uint64_t frame_ = 0; /**< that the rows are of */
};

/** Does the work of check_truth(). */
class truth_checker
{
public:
    truth_checker(const recording_documents &documents, uint64_t frames, bool finished)
        : documents_(documents), frames_(frames), finished_(finished), ticks_(documents, frames)
    {
    }

    /** Checks every line. */
    checked_truth run(const truth_receiver &receive, const std::function<void()> &stop)
    {
        truth_table table(documents_.directory / truth_file_name);
        found_.readable = true;
        compare_head(table.head());
        while (!ended_)
        {
            if (stop)
            {
                stop();
            }
            if (const auto line = read(table); line && belongs(*line))
            {
                count();
                if (receive)
                {
                    receive(*line);
                }
            }
        }
        check_rest(table.rest());
        return std::move(found_);
    }

private:
    void add_fault(const std::string &text)
    {
        found_.faults.push_back(std::string(truth_file_name) + " " + text);
        found_.whole = false;
    }

    void compare_head(const std::string &head)
    {
        if (head + "\n" != truth_head(documents_.session.truth))
        {
            add_fault("has another first line than the description of the session.");
        }
    }

    /** Reads a line; nothing at the end of the file, or if the line is damaged. */
    std::optional<recorded_truth> read(truth_table &table)
    {
        try
        {
            auto line = table.next();
            ended_ = !line;
            return line;
        }
        catch (const bad_recording &failure)
        {
            refuse_line(failure.what());
            // A line that is too long cannot be left behind.
            ended_ = std::exchange(last_position_, table.position()) == table.position();
            return std::nullopt;
        }
    }

    /** Notes a line that is wrong; the first one is described. */
    void refuse_line(const std::string &reason)
    {
        if (!std::exchange(has_wrong_line_, true))
        {
            add_fault("has a wrong line: " + reason);
        }
    }

    /** Whether a line is the one of a frame that is left. */
    bool belongs(const recorded_truth &line)
    {
        if (line.frame >= frames_)
        {
            found_.whole = false;
            surplus_ = true;
            return false;
        }
        const auto &items = documents_.items;
        size_t index = 0;
        while (index < items.size() &&
               (items[index].layout.group != line.group || items[index].layout.index != line.item))
        {
            ++index;
        }
        const auto place = std::pair(line.frame, index);
        const bool right = index < items.size() && (!last_ || *last_ < place) &&
                           line.truth.sensor_id == items[index].configuration.sensor_id &&
                           line.truth.tick == ticks_.tick(line.frame, index);
        if (!right)
        {
            refuse_line("frame " + std::to_string(line.frame) + " of group " +
                        std::to_string(line.group + 1) + ", item " + std::to_string(line.item + 1) +
                        " has another sensor or tick, is listed before, or does not exist.");
            return false;
        }
        items_ = last_ && last_->first == line.frame ? items_ + 1 : 1;
        last_ = place;
        return true;
    }

    /** Counts a right line. */
    void count()
    {
        ++found_.lines;
        found_.frames += items_ == documents_.items.size() ? 1 : 0;
    }

    /** Checks that nothing follows the lines of the frames that are left. */
    void check_rest(uint64_t bytes)
    {
        found_.whole = found_.whole && bytes == 0;
        if (finished_ && (surplus_ || bytes > 0))
        {
            add_fault("has more than the lines of " + counted(frames_, "frame") + ".");
        }
    }

    const recording_documents &documents_;
    uint64_t frames_;
    bool finished_;
    tick_reader ticks_;
    checked_truth found_;
    std::optional<std::pair<uint64_t, size_t>> last_; /**< frame and item of the last right line */
    size_t items_ = 0;                                /**< right lines of its frame so far */
    uint64_t last_position_ = 0;                      /**< of the last wrong line */
    bool has_wrong_line_ = false;
    bool surplus_ = false; /**< there are lines of frames that are not left */
    bool ended_ = false;
};

} // namespace

checked_truth check_truth(const recording_documents &documents, uint64_t frames, bool finished,
                          const truth_receiver &receive, const std::function<void()> &stop)
{
    try
    {
        return truth_checker(documents, frames, finished).run(receive, stop);
    }
    catch (const bad_recording &failure)
    {
        checked_truth none;
        none.faults.emplace_back(failure.what());
        return none;
    }
}

void rewrite_truth(const recording_documents &documents, uint64_t frames)
{
    new_version written(documents.directory / truth_file_name, link_rule::refused);
    written.file().append(truth_head(documents.session.truth));
    check_truth(documents, frames, false,
                [&](const recorded_truth &line) { written.file().append(truth_line(line)); });
    written.finish();
    written.put_into_place();
}

} // namespace vantor
