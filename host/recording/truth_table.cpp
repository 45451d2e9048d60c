/** @file
 * Reads the truth in a recording.
 */
#include "vantor/truth_table.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <tuple>
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
    // Exceptions take longer than most lines.
    if (!line.starts_with('{'))
    {
        return std::nullopt;
    }
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
    try
    {
        read_head();
    }
    catch (const bad_recording &)
    {
        // The documents of the recording describe the scene, too: a first line that is too long is only
        // damaged.
        if (lines_->position() == 0)
        {
            throw;
        }
    }
    begin_ = lines_->position();
}

/** Reads the first line, unless it is already that of a frame. */
void truth_table::read_head()
{
    const auto head = lines_->next();
    if (!head)
    {
        lines_->seek(0);
        throw bad_recording(lines_->file().path().string() +
                            " has no first line, which describes the scene.");
    }
    if (frame_of(*head))
    {
        lines_->seek(0);
        return;
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

void truth_table::on_read(std::function<void()> handler)
{
    on_read_ = handler;
    lines_->on_read(std::move(handler));
}

/** Lets an exception end the reading. */
void truth_table::ask_to_go_on() const
{
    if (on_read_)
    {
        on_read_();
    }
}

std::optional<recorded_truth> truth_table::next()
{
    ask_to_go_on();
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
    uint64_t begin = begin_;
    uint64_t end = lines_->file().size();
    while (begin + short_stretch < end)
    {
        const uint64_t middle = begin + (end - begin) / 2;
        const auto found = typical_place(middle, end);
        if (found && found->frame < frame)
        {
            begin = found->start;
        }
        else
        {
            end = middle;
        }
    }
    lines_->seek(begin);
    while (const auto found = next_place(lines_->file().size()))
    {
        begin = found->start;
        if (found->frame >= frame)
        {
            break;
        }
    }
    lines_->seek(begin);
}

/** The line with the middle frame among the first ones after a byte: a line in a wrong place does not matter.
 */
std::optional<truth_table::place> truth_table::typical_place(uint64_t begin, uint64_t end)
{
    constexpr size_t most_places = 5;
    lines_->seek(begin);
    // The rest of a line.
    std::ignore = read_frame();
    std::vector<place> places;
    while (places.size() < most_places)
    {
        const auto found = next_place(end);
        if (!found)
        {
            break;
        }
        places.push_back(*found);
    }
    if (places.empty())
    {
        return std::nullopt;
    }
    const auto start = places.front().start;
    std::ranges::sort(places, {}, &place::frame);
    return place{.start = start, .frame = places[places.size() / 2].frame};
}

/** The next line that is not damaged and begins before a byte; no value if there is none. */
std::optional<truth_table::place> truth_table::next_place(uint64_t end)
{
    const auto begin = lines_->position();
    std::optional<place> found;
    while (!found && lines_->position() < end)
    {
        if (const auto known = damaged_.upper_bound(lines_->position());
            known != damaged_.begin() && std::prev(known)->second > lines_->position())
        {
            lines_->seek(std::prev(known)->second);
            continue;
        }
        const auto start = lines_->position();
        if (const auto frame = read_frame())
        {
            found = {.start = start, .frame = *frame};
        }
        else if (lines_->position() == start)
        {
            break;
        }
    }
    const auto passed = found ? found->start : lines_->position();
    if (begin + short_stretch < passed)
    {
        damaged_[begin] = passed;
    }
    return found;
}

/** The number of the frame of the next line; no value without a line or if it is damaged. */
std::optional<uint64_t> truth_table::read_frame()
{
    ask_to_go_on();
    const auto start = lines_->position();
    try
    {
        const auto line = lines_->next();
        return line ? frame_of(*line) : std::nullopt;
    }
    catch (const bad_recording &)
    {
        // It cannot be read if nothing was passed, and is too long otherwise.
        if (lines_->position() == start)
        {
            throw;
        }
        return std::nullopt;
    }
}

} // namespace vantor
