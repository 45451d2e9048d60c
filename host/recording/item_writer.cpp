/** @file
 * Writes one item of a recording.
 */
#include "recording/item_writer.h"

#include <array>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "recording/utc_cells.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Appends a cell: a number in its shortest exact form, or 0 or 1 for a Boolean. */
template <typename number_t> void append_cell(std::string &row, number_t value)
{
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    row.append(digits.data(), end);
    row += ',';
}

template <> void append_cell(std::string &row, bool value)
{
    row += value ? "1," : "0,";
}

/** Appends a cell, which is empty if there is no value. */
template <typename value_t> void append_cell(std::string &row, const std::optional<value_t> &value)
{
    if (value)
    {
        append_cell(row, *value);
        return;
    }
    row += ',';
}

/** Appends the table row of a frame. */
void append_row(std::string &row, uint64_t number, double seconds, const frame_item &item)
{
    append_cell(row, number);
    append_cell(row, seconds);
    append_cell(row, item.tick);
    append_cell(row, item.temperature);
    append_cell(row, item.data_saturated);
    append_cell(row, item.frame_delayed);
    append_cell(row, item.calibration_needed);
    append_cell(row, item.data_valid);
    append_cell(row, item.cca_value);
    append_cell(row, item.cca_detected);
    append_cell(row, item.tx_enabled);
    append_utc_cells(row, item.utc);
    row.back() = '\n';
}

/** The path of one of an item's files. */
std::filesystem::path with_extension(std::filesystem::path base, std::string_view extension)
{
    base += extension;
    return base;
}

} // namespace

item_writer::item_writer(const std::filesystem::path &base, size_t index, double ticks_per_second,
                         item_digests digests)
    : data_(with_extension(base, ".sigmf-data")), table_(with_extension(base, ".frames.csv")), index_(index),
      clock_(ticks_per_second), appended_{.rows = {}, .samples = {}, .clock = clock_},
      digests_(std::move(digests))
{
    table_.append(frame_table_head);
    digests_.table.update(std::as_bytes(std::span(frame_table_head)));
    table_length_ = frame_table_head.size();
}

void item_writer::append(std::span<const arrived_frame> block)
{
    appended_.frames = block.size();
    appended_.rows.clear();
    appended_.clock = clock_;
    for (size_t i = 0; i < block.size(); ++i)
    {
        const auto &item = item_of(block[i]);
        append_row(appended_.rows, frames_ + i, appended_.clock.advance(item.tick), item);
    }
    appended_.samples = samples_of(block);
    // First: the samples determine the number of frames, so each of them has a row even after a kill.
    table_.append(appended_.rows);
    data_.append(appended_.samples);
}

/** The samples of some frames, one after the other; those of several frames in memory that is used again. */
std::span<const std::byte> item_writer::samples_of(std::span<const arrived_frame> block)
{
    if (block.size() == 1)
    {
        return std::as_bytes(item_of(block.front()).samples);
    }
    gathered_.clear();
    for (const auto &arrived : block)
    {
        const auto bytes = std::as_bytes(item_of(arrived).samples);
        gathered_.insert(gathered_.end(), bytes.begin(), bytes.end());
    }
    return gathered_;
}

void item_writer::commit()
{
    clock_ = appended_.clock;
    digests_.samples.update(appended_.samples);
    digests_.table.update(std::as_bytes(std::span(appended_.rows)));
    data_length_ += appended_.samples.size();
    table_length_ += appended_.rows.size();
    frames_ += appended_.frames;
}

void item_writer::require_existing() const
{
    for (const auto *const file : {&data_, &table_})
    {
        if (file->is_removed())
        {
            throw recording_error(file->name().string() +
                                  " was removed during the recording, with its part of all frames (" +
                                  std::to_string(frames_) + ").");
        }
    }
}

void item_writer::require_in_place() const
{
    require_existing();
    for (const auto *const file : {&data_, &table_})
    {
        if (!file->is_in_place())
        {
            throw recording_error(file->name().string() +
                                  " was moved or replaced during the recording. All frames (" +
                                  std::to_string(frames_) + ") are where it was moved to.");
        }
    }
}

void item_writer::rollback() noexcept
{
    data_.truncate(data_length_);
    table_.truncate(table_length_);
}

} // namespace vantor
