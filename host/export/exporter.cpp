/** @file
 * Converts a recording to files for other programs.
 */
#include "export/exporter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "export/item_files.h"
#include "export/missing_counter.h"
#include "export/npy.h"
#include "export/zip_writer.h"
#include "recording/utc_cells.h"

namespace vantor
{
namespace
{

/** Appends a number in its shortest exact form, and a separator. */
template <typename number_t> void append_number(std::string &text, number_t value, char separator)
{
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    text.append(digits.data(), end);
    text += separator;
}

/** What an array has for a frame without a value. */
constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

/** A frame in the course of a recording. */
struct frame_place
{
    uint64_t number = 0;
    double seconds = 0.0;
    uint64_t missing = 0; /**< frames missing before it, since the start of the recording */
    std::optional<utc_time> utc;
};

/** Formats one frame of an item as text. */
std::string csv_lines(const recorded_item &item, const frame_place &place, const std::vector<sample> &samples)
{
    std::string text;
    std::string end;
    append_number(end, place.seconds, ',');
    append_number(end, place.missing, ',');
    append_utc_cells(end, place.utc);
    end.back() = '\n';
    const auto length = item.layout.sweep_length;
    for (size_t i = 0; i < samples.size(); ++i)
    {
        const double distance = item.layout.distances_m[i % length];
        append_number(text, place.number, ',');
        append_number(text, i / length, ',');
        append_number(text, i % length, ',');
        if (std::isnan(distance))
        {
            text += ',';
        }
        else
        {
            // Rounded to micrometres, far less than a base step, to hide binary fractions.
            append_number(text, std::round(distance * 1e6) / 1e6, ',');
        }
        append_number(text, samples[i].i, ',');
        append_number(text, samples[i].q, ',');
        text += end;
    }
    return text;
}

/** Formats a target as the end of a line. */
std::string target_cells(const target_truth &target)
{
    std::string text;
    append_number(text, target.target, ',');
    append_number(text, target.distance_m, ',');
    append_number(text, target.velocity_m_s, ',');
    append_number(text, target.amplitude, ',');
    append_number(text, target.phase_rad, ',');
    if (target.snr_db)
    {
        append_number(text, *target.snr_db, ',');
    }
    else
    {
        text += ',';
    }
    append_number(text, target.body, '\n');
    return text;
}

/** Formats the truth of an item in a frame as text. */
std::string truth_lines_of(const recorded_truth &line)
{
    std::string begin;
    append_number(begin, line.frame, ',');
    append_number(begin, line.truth.tick, ',');
    append_number(begin, line.truth.time_s, ',');
    append_number(begin, line.truth.temperature, ',');
    append_number(begin, line.truth.noise_power, ',');
    append_number(begin, line.truth.interference, ',');
    std::string text;
    for (const auto &target : line.truth.targets)
    {
        text += begin + target_cells(target);
    }
    return text.empty() ? begin + ",,,,,,\n" : text;
}

/** The shape of the samples of an item: the axes frame, sweep and point. */
std::vector<uint64_t> shape_of(const recording_reader &recording, const recorded_item &item)
{
    return {recording.frames(), item.layout.sweeps(), item.layout.sweep_length};
}

/** Number of samples that are converted at once, in whole frames. */
constexpr uint64_t block_samples = 32768;

/** Passes the samples of an item, in single precision, to a function, some frames at a time. */
template <typename append_t> void widen_frames(recording_reader &recording, size_t index, append_t append)
{
    const uint64_t frame_length = recording.items()[index].layout.frame_length;
    const uint64_t most = std::max<uint64_t>(block_samples / std::max<uint64_t>(frame_length, 1), 1);
    std::vector<sample> samples;
    std::vector<std::complex<float>> wide;
    for (uint64_t first = 0; first < recording.frames(); first += most)
    {
        recording.read_frames(index, first, std::min(most, recording.frames() - first), samples);
        wide.assign(samples.begin(), samples.end());
        append(std::as_bytes(std::span(wide)));
    }
}

/** An item whose frame table is exported. */
struct table_source
{
    const recording_reader &recording;
    size_t index;
    const std::function<void()> &check; /**< called for each row, if set; an exception ends the export */
};

/** Adds one array to an archive: a value for each frame. */
template <typename value_t, typename read_t>
void add_column(zip_writer &archive, const table_source &source, const std::string &name,
                const std::string &type, read_t read)
{
    const auto head = npy_head(type, {source.recording.frames()});
    archive.begin(name + ".npy", head.size() + source.recording.frames() * sizeof(value_t));
    archive.append(std::as_bytes(std::span(head)));
    auto table = source.recording.open_table(source.index);
    for (uint64_t number = 0; number < source.recording.frames(); ++number)
    {
        if (source.check)
        {
            source.check();
        }
        const value_t value = read(table.require());
        archive.append(std::as_bytes(std::span(&value, 1)));
    }
    archive.end();
}

/** The number of seconds in a span of whole microseconds, rounded once. */
double seconds_of(std::chrono::nanoseconds span)
{
    constexpr double microseconds_per_second = 1e6;
    const auto count = std::chrono::duration_cast<std::chrono::microseconds>(span).count();
    return static_cast<double>(count) / microseconds_per_second;
}

/** Adds the columns of the frame table to an archive. */
void add_columns(zip_writer &archive, const table_source &source)
{
    missing_counter missing(source.recording);
    add_column<uint64_t>(archive, source, "missing", "<u8",
                         [&missing](const frame_row &row) { return missing.next(row); });
    add_column<double>(archive, source, "time_s", "<f8", [](const frame_row &row) { return row.seconds; });
    add_column<uint32_t>(archive, source, "tick", "<u4", [](const frame_row &row) { return row.tick; });
    add_column<int32_t>(archive, source, "temperature", "<i4",
                        [](const frame_row &row) { return row.temperature; });
    add_column<bool>(archive, source, "data_saturated", "|b1",
                     [](const frame_row &row) { return row.data_saturated; });
    add_column<bool>(archive, source, "frame_delayed", "|b1",
                     [](const frame_row &row) { return row.frame_delayed; });
    add_column<bool>(archive, source, "calibration_needed", "|b1",
                     [](const frame_row &row) { return row.calibration_needed; });
    add_column<bool>(archive, source, "data_valid", "|b1",
                     [](const frame_row &row) { return row.data_valid.value_or(true); });
    add_column<double>(archive, source, "utc_s", "<f8", [](const frame_row &row) {
        return row.utc ? seconds_of(row.utc->moment.time_since_epoch()) : unknown;
    });
    add_column<double>(archive, source, "utc_bound_s", "<f8",
                       [](const frame_row &row) { return row.utc ? seconds_of(row.utc->bound) : unknown; });
}

/** Adds the samples of an item and the distances of its points to an archive. */
void add_samples(zip_writer &archive, recording_reader &recording, size_t index)
{
    const auto &item = recording.items()[index];
    const auto head = npy_head("<c8", shape_of(recording, item));
    archive.begin("samples.npy",
                  head.size() + recording.frames() * item.layout.frame_length * sizeof(std::complex<float>));
    archive.append(std::as_bytes(std::span(head)));
    widen_frames(recording, index, [&](std::span<const std::byte> bytes) { archive.append(bytes); });
    archive.end();
    const auto distances = std::as_bytes(std::span(item.layout.distances_m));
    const auto axis = npy_head("<f8", {item.layout.distances_m.size()});
    archive.begin("distance_m.npy", axis.size() + distances.size());
    archive.append(std::as_bytes(std::span(axis)));
    archive.append(distances);
    archive.end();
}

} // namespace

std::vector<std::filesystem::path>
export_csv(recording_reader &recording, const std::filesystem::path &directory, const export_calls &calls)
{
    return write_item_files(
        recording, directory, ".csv", calls.complete, [&](output_file &file, size_t index) {
            const auto &item = recording.items()[index];
            auto table = recording.open_table(index);
            std::vector<sample> samples;
            missing_counter missing(recording);
            file.append("frame,sweep,point,distance_m,real,imag,time_s,missing,utc_s,utc_bound_s\n");
            for (uint64_t number = 0; number < recording.frames(); ++number)
            {
                recording.read_frame(index, number, samples);
                const auto row = table.require();
                file.append(csv_lines(
                    item,
                    {.number = number, .seconds = row.seconds, .missing = missing.next(row), .utc = row.utc},
                    samples));
            }
        });
}

std::vector<std::filesystem::path> export_truth(const recording_reader &recording,
                                                const std::filesystem::path &directory,
                                                const export_calls &calls)
{
    static_cast<void>(recording.open_truth());
    return write_item_files(
        recording, directory, ".truth.csv", calls.complete, [&](output_file &file, size_t index) {
            const auto &layout = recording.items()[index].layout;
            truth_frames truth(recording, calls.row);
            file.append(
                "frame,tick,time_s,temperature,noise_power,interference,target,distance_m,velocity_m_s,"
                "amplitude,phase_rad,snr_db,body\n");
            for (uint64_t number = 0; number < recording.frames(); ++number)
            {
                for (const auto &line : truth.move_to(number))
                {
                    if (line.group == layout.group && line.item == layout.index)
                    {
                        file.append(truth_lines_of(line));
                    }
                }
            }
        });
}

std::vector<std::filesystem::path>
export_npy(recording_reader &recording, const std::filesystem::path &directory, const export_calls &calls)
{
    return write_item_files(
        recording, directory, ".npy", calls.complete, [&](output_file &file, size_t index) {
            file.append(npy_head("<c8", shape_of(recording, recording.items()[index])));
            widen_frames(recording, index, [&](std::span<const std::byte> bytes) { file.append(bytes); });
        });
}

std::vector<std::filesystem::path>
export_npz(recording_reader &recording, const std::filesystem::path &directory, const export_calls &calls)
{
    return write_item_files(
        recording, directory, ".npz", calls.complete, [&](output_file &file, size_t index) {
            zip_writer archive(file);
            add_samples(archive, recording, index);
            add_columns(archive, {.recording = recording, .index = index, .check = calls.row});
            archive.finish();
        });
}

} // namespace vantor
