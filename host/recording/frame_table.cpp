/** @file
 * Reads the frame table of an item.
 */
#include "vantor/frame_table.h"

#include <array>
#include <charconv>
#include <cmath>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>

#include "recording/input_file.h"
#include "recording/item_writer.h"
#include "recording/utc_cells.h"
#include "vantor/recording_error.h"
#include "vantor/tick_clock.h"

namespace vantor
{
namespace
{

constexpr size_t column_count = 13;

/** Number of columns in tables of earlier versions. */
constexpr size_t column_count_without_utc = 11;

/** Bytes in which a line is found sooner by reading them than by dividing them. */
constexpr uint64_t short_part = 65536;

/** Splits a line into the first cells; false if it has the wrong number of them. */
bool split(std::string_view line, std::span<std::string_view> cells)
{
    size_t count = 0;
    while (count < cells.size())
    {
        const auto comma = line.find(',');
        cells[count++] = line.substr(0, comma);
        if (comma == std::string_view::npos)
        {
            return count == cells.size();
        }
        line.remove_prefix(comma + 1);
    }
    return false;
}

/** Parses a cell as a number; false if it is not one. */
template <typename number_t> bool read_cell(std::string_view cell, number_t &value)
{
    const auto [stop, failure] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
    return failure == std::errc{} && stop == cell.data() + cell.size();
}

template <> bool read_cell(std::string_view cell, bool &value)
{
    value = cell == "1";
    return value || cell == "0";
}

/** Parses a cell that may be empty. */
template <typename value_t> bool read_cell(std::string_view cell, std::optional<value_t> &value)
{
    return cell.empty() || read_cell(cell, value.emplace());
}

/** The number of the frame that a line describes; no value without a line or without a number in it. */
std::optional<uint64_t> number_of(std::optional<std::string_view> line)
{
    uint64_t number = 0;
    const bool known = line && read_cell(line->substr(0, line->find(',')), number);
    return known ? std::optional(number) : std::nullopt;
}

/** The path of a table; throws bad_recording if it is missing. */
const std::filesystem::path &present(const std::filesystem::path &path)
{
    std::error_code failure;
    if (!std::filesystem::exists(path, failure))
    {
        throw bad_recording(path.string() + " is missing: copy the recording again, with all its files.");
    }
    return path;
}

} // namespace

frame_table::frame_table(std::filesystem::path path)
    : path_(std::move(path)), lines_(std::make_unique<line_reader>(present(path_)))
{
    const auto line = lines_->next();
    for (const auto head : {frame_table_head, frame_table_head_without_utc})
    {
        head_ = line && *line == head.substr(0, head.size() - 1) ? head : head_;
    }
    if (head_.empty())
    {
        throw bad_recording(path_.string() + " is not a frame table.");
    }
}

frame_table::frame_table(frame_table &&other) noexcept = default;
frame_table &frame_table::operator=(frame_table &&other) noexcept = default;
frame_table::~frame_table() = default;

uint64_t frame_table::position() const noexcept
{
    return lines_->position();
}

uint64_t frame_table::rest() const
{
    return lines_->file().size() - position();
}

void frame_table::seek(uint64_t frame)
{
    // Lines have different lengths, but begin with their numbers.
    uint64_t begin = head_.size();
    uint64_t end = lines_->file().size();
    rows_ = 0;
    while (begin + short_part < end)
    {
        const uint64_t middle = begin + (end - begin) / 2;
        lines_->seek(middle);
        // The rest of a line.
        lines_->next();
        const uint64_t start = lines_->position();
        const auto number = number_of(lines_->next());
        if (number && *number <= frame)
        {
            begin = start;
            rows_ = *number;
        }
        else
        {
            end = middle;
        }
    }
    lines_->seek(begin);
    while (rows_ < frame && lines_->next())
    {
        ++rows_;
    }
}

frame_row frame_table::require()
{
    const auto row = next();
    if (!row)
    {
        throw bad_recording(path_.string() + " has fewer lines than the recording has frames.");
    }
    return *row;
}

std::optional<frame_row> frame_table::next()
{
    const auto line = lines_->next();
    if (!line)
    {
        return std::nullopt;
    }
    std::array<std::string_view, column_count> cells;
    frame_row row;
    uint64_t number = 0;
    const size_t count = head_ == frame_table_head ? column_count : column_count_without_utc;
    const bool whole = split(*line, std::span(cells).first(count)) && read_cell(cells[0], number) &&
                       number == rows_ && read_cell(cells[1], row.seconds) && read_cell(cells[2], row.tick) &&
                       read_cell(cells[3], row.temperature) && read_cell(cells[4], row.data_saturated) &&
                       read_cell(cells[5], row.frame_delayed) &&
                       read_cell(cells[6], row.calibration_needed) && read_cell(cells[7], row.data_valid) &&
                       read_cell(cells[8], row.cca_value) && read_cell(cells[9], row.cca_detected) &&
                       read_cell(cells[10], row.tx_enabled) &&
                       read_utc_cells(cells[11], cells[12], row.utc) && row.seconds >= 0.0 &&
                       row.seconds <= longest_time && std::isfinite(row.cca_value.value_or(0.0));
    ++rows_;
    if (!whole)
    {
        throw bad_recording(path_.string() + ": line " + std::to_string(rows_ + 1) +
                            " does not describe a frame.");
    }
    return row;
}

} // namespace vantor
