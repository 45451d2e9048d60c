/** @file
 * Compares the truth in a recording with its frames.
 */
#include "recording/truth_check.h"

#include <optional>
#include <utility>

#include "recording/file_replacement.h"
#include "recording/input_file.h"
#include "recording/number_text.h"
#include "recording/truth_lines.h"
#include "recording/truth_writer.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Does the work of check_truth(). */
class truth_checker
{
public:
    truth_checker(const recording_documents &documents, uint64_t frames, bool finished)
        : documents_(documents), frames_(frames), finished_(finished)
    {
    }

    /** Checks every line. */
    checked_truth run(const truth_receiver &receive, const std::function<void()> &stop)
    {
        truth_table table(documents_.directory / truth_file_name);
        table.on_read(stop);
        found_.readable = true;
        compare_head(table.head());
        truth_lines lines(std::move(table),
                          {.directory = documents_.directory, .items = documents_.items, .count = frames_});
        while (const auto line = lines.next())
        {
            count(*line);
            if (receive)
            {
                receive(*line);
            }
        }
        judge(lines.wrong(), lines.table().rest());
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

    /** Counts a right line. */
    void count(const recorded_truth &line)
    {
        ++found_.lines;
        items_ = frame_ == line.frame ? items_ + 1 : 1;
        frame_ = line.frame;
        found_.frames += items_ == documents_.items.size() ? 1 : 0;
    }

    /** Judges the lines that are left out, and the bytes after the last complete line. */
    void judge(const wrong_lines &wrong, uint64_t bytes)
    {
        found_.surplus = wrong.damaged + wrong.surplus + (bytes > 0 ? 1 : 0);
        found_.whole = found_.whole && found_.surplus == 0;
        if (!wrong.first.empty())
        {
            add_fault("has a wrong line: " + wrong.first);
        }
        if (finished_ && (wrong.surplus > 0 || bytes > 0))
        {
            add_fault("has more than the lines of " + counted(frames_, "frame") + ".");
        }
    }

    const recording_documents &documents_;
    uint64_t frames_;
    bool finished_;
    checked_truth found_;
    std::optional<uint64_t> frame_; /**< of the last right line */
    size_t items_ = 0;              /**< right lines of this frame so far */
};

/** Whether a file does not exist, or has no complete line; false if that is not known. */
bool is_lost(const std::filesystem::path &path)
try
{
    return !exists(symlink_status(path)) || !line_reader(path, most_truth_bytes).next();
}
catch (const std::exception &)
{
    return false;
}

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
        none.lost = is_lost(documents.directory / truth_file_name);
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
