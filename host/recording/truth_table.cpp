/** @file
 * Reads the truth in a recording.
 */
#include "vantor/truth_table.h"

#include <string>
#include <string_view>
#include <utility>

#include "recording/input_file.h"
#include "recording/truth_writer.h"
#include "vantor/configuration.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Bytes in which a line is found sooner by reading them than by dividing them. */
constexpr uint64_t short_stretch = 65536;

/** The greatest number in a line: more frames than any recording has. */
constexpr uint64_t most_in_line = 1'000'000'000'000;

/** Returns a required member as a whole number; throws protocol_error if it is not one. */
uint64_t whole_member(const nlohmann::json &line, const char *name, uint64_t least)
{
    const auto found = line.find(name);
    if (found == line.end() || !found->is_number_unsigned() || *found < least || *found > most_in_line)
    {
        throw protocol_error(std::string("\"") + name + "\" is missing, or is not a whole number from " +
                             std::to_string(least) + ".");
    }
    return found->get<uint64_t>();
}

/** Decodes a line. */
recorded_truth decode_line(std::string_view line)
{
    const auto document = parse_json_text(line, "The line");
    auto truth = decode_truth(document);
    return {.frame = whole_member(document, "frame", 0),
            .group = whole_member(document, "group", 1) - 1,
            .item = whole_member(document, "item", 1) - 1,
            .truth = std::move(truth)};
}

/** The number of the frame of a line; no value if it is damaged. */
std::optional<uint64_t> frame_of(std::string_view line)
try
{
    return decode_line(line).frame;
}
catch (const error &)
{
    return std::nullopt;
}

} // namespace

truth_table::truth_table(const std::filesystem::path &path)
    : lines_(std::make_unique<line_reader>(path, most_truth_bytes))
{
    const auto head = lines_->next();
    if (!head)
    {
        throw bad_recording(path.string() + " has no first line, which describes the scene.");
    }
    head_ = *head;
}

truth_table::truth_table(truth_table &&other) noexcept = default;
truth_table &truth_table::operator=(truth_table &&other) noexcept = default;
truth_table::~truth_table() = default;

const std::string &truth_table::head() const noexcept
{
    return head_;
}

uint64_t truth_table::position() const noexcept
{
    return lines_->position();
}

uint64_t truth_table::rest() const
{
    return lines_->file().size() - position();
}

std::optional<recorded_truth> truth_table::next()
{
    const auto start = lines_->position();
    const auto line = lines_->next();
    if (!line)
    {
        return std::nullopt;
    }
    try
    {
        return decode_line(*line);
    }
    catch (const bad_recording &)
    {
        throw;
    }
    catch (const error &failure)
    {
        throw bad_recording(lines_->file().path().string() + ": the line at byte " + std::to_string(start) +
                            " does not describe the truth of a frame: " + failure.what());
    }
}

void truth_table::seek(uint64_t frame)
{
    // Lines have different lengths, but are in the order of frames.
    uint64_t begin = head_.size() + 1;
    uint64_t end = lines_->file().size();
    while (begin + short_stretch < end)
    {
        const uint64_t middle = begin + (end - begin) / 2;
        lines_->seek(middle);
        // The rest of a line.
        lines_->next();
        const uint64_t start = lines_->position();
        const auto number = next_frame();
        if (number && *number < frame)
        {
            begin = start;
        }
        else
        {
            end = middle;
        }
    }
    lines_->seek(begin);
    while (next_frame().value_or(frame) < frame)
    {
        begin = lines_->position();
    }
    lines_->seek(begin);
}

/** The number of the frame of the next line; no value if there is no line, or it is damaged. */
std::optional<uint64_t> truth_table::next_frame()
{
    const auto line = lines_->next();
    return line ? frame_of(*line) : std::nullopt;
}

truth_frames::truth_frames(truth_table table) : table_(std::move(table))
{
}

const std::vector<recorded_truth> &truth_frames::move_to(uint64_t frame)
{
    lines_.clear();
    while (next_ || (next_ = next_line()))
    {
        if (next_->frame > frame)
        {
            break;
        }
        if (next_->frame == frame)
        {
            lines_.push_back(std::move(*next_));
        }
        next_.reset();
    }
    return lines_;
}

/** Reads the next line that is not damaged; nothing if there is none. */
std::optional<recorded_truth> truth_frames::next_line()
{
    while (true)
    {
        const auto start = table_.position();
        try
        {
            return table_.next();
        }
        catch (const bad_recording &)
        {
            // A line that is too long cannot be passed.
            if (table_.position() == start)
            {
                return std::nullopt;
            }
        }
    }
}

void truth_frames::seek(uint64_t frame)
{
    next_.reset();
    table_.seek(frame);
}

} // namespace vantor
