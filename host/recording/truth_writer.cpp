/** @file
 * Writes the truth of simulated sensors beside the samples of a recording.
 */
#include "recording/truth_writer.h"

#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** The lines of the items of a frame whose truth is known. */
std::string lines_of_frame(uint64_t number, const frame &received)
{
    std::string lines;
    const auto &known = received.truth();
    for (size_t i = 0; known && i < received.items().size(); ++i)
    {
        if (const auto &truth = known->items.at(i))
        {
            const auto &layout = *received.items()[i].layout;
            lines +=
                truth_line({.frame = number, .group = layout.group, .item = layout.index, .truth = *truth});
        }
    }
    return lines;
}

} // namespace

std::string truth_line(const recorded_truth &truth)
{
    nlohmann::ordered_json line = {
        {"frame", truth.frame}, {"group", truth.group + 1}, {"item", truth.item + 1}};
    line.update(encode_truth(truth.truth));
    return line.dump() + "\n";
}

std::string truth_head(const nlohmann::json &truth)
{
    return truth.dump() + "\n";
}

truth_writer::truth_writer(const std::filesystem::path &path, const nlohmann::json &truth) : file_(path)
{
    const auto head = truth_head(truth);
    file_.append(head);
    length_ = head.size();
}

void truth_writer::append(uint64_t first, std::span<const arrived_frame> block)
{
    require_whole();
    std::string lines;
    for (size_t i = 0; i < block.size(); ++i)
    {
        lines += lines_of_frame(first + i, *block[i].what);
    }
    appended_ = lines.size();
    file_.append(lines);
}

void truth_writer::require_whole() const
{
    if (file_.is_shorter_than(length_))
    {
        throw recording_error(file_.name().string() + " was shortened during the recording.");
    }
}

void truth_writer::sync() const
{
    if (file_.is_removed())
    {
        throw recording_error(file_.name().string() + " was removed during the recording.");
    }
    file_.sync();
}

} // namespace vantor
