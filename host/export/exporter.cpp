/** @file
 * Converts a recording to files for other programs.
 */
#include "export/exporter.h"

#include <array>
#include <charconv>
#include <cmath>
#include <complex>
#include <deque>
#include <string>
#include <system_error>

#include "recording/output_file.h"
#include "recording/recording_error.h"

namespace vantor
{
namespace
{

/** Alignment of the data in an NPY file. */
constexpr size_t npy_alignment = 64;

/** Number of bytes before the header of an NPY file: magic, version, length of the header. */
constexpr size_t npy_prefix = 10;

/** Appends a number in its shortest exact form, and a separator. */
template <typename number_t> void append_number(std::string &text, number_t value, char separator)
{
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    text.append(digits.data(), end);
    text += separator;
}

/** Formats one frame of an item as text. */
std::string csv_lines(const recorded_item &item, uint64_t number, const std::vector<sample> &samples)
{
    std::string text;
    const auto length = item.layout.sweep_length;
    for (size_t i = 0; i < samples.size(); ++i)
    {
        const double distance = item.distances[i % length];
        append_number(text, number, ',');
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
        append_number(text, samples[i].real(), ',');
        append_number(text, samples[i].imag(), '\n');
    }
    return text;
}

/** The header of an NPY file, version 1.0: a description of the array, padded so that the data are aligned.
 */
std::string npy_head(const recording_reader &recording, const recorded_item &item)
{
    std::string description =
        "{'descr': '<c8', 'fortran_order': False, 'shape': (" + std::to_string(recording.frames()) + ", " +
        std::to_string(item.layout.sweeps()) + ", " + std::to_string(item.layout.sweep_length) + "), }";
    const auto unpadded = npy_prefix + description.size() + 1;
    description.append((npy_alignment - unpadded % npy_alignment) % npy_alignment, ' ');
    description += '\n';
    std::string head("\x93NUMPY\x01\x00", 8);
    head += static_cast<char>(description.size() & 0xFFU);
    head += static_cast<char>(description.size() >> 8U);
    return head + description;
}

/** Converts the samples of a frame to single precision. */
std::vector<std::complex<float>> widen(const std::vector<sample> &samples)
{
    std::vector<std::complex<float>> wide;
    wide.reserve(samples.size());
    for (const auto &value : samples)
    {
        wide.emplace_back(static_cast<float>(value.real()), static_cast<float>(value.imag()));
    }
    return wide;
}

/** The paths of the files of all items; throws recording_error if one exists already. */
std::vector<std::filesystem::path> new_paths(const recording_reader &recording,
                                             const std::filesystem::path &directory, const char *extension)
{
    std::vector<std::filesystem::path> paths;
    for (const auto &item : recording.items())
    {
        const auto &path = paths.emplace_back(directory / (item.name + extension));
        std::error_code failure;
        if (std::filesystem::exists(path, failure))
        {
            throw recording_error(
                "Cannot create " + path.string() +
                ": it exists already; remove it, or choose another directory with --output.");
        }
    }
    return paths;
}

/** Creates a directory, unless it exists. */
void make_directory(const std::filesystem::path &directory)
{
    std::error_code failure;
    std::filesystem::create_directories(directory, failure);
    if (failure)
    {
        throw recording_error("Cannot create the directory " + directory.string() + ": " + failure.message() +
                              ".");
    }
}

/** Writes one file per item: a header, then all frames. Either all files are created or none. */
template <typename head_t, typename body_t>
std::vector<std::filesystem::path> write_items(recording_reader &recording,
                                               const std::filesystem::path &directory, const char *extension,
                                               head_t head, body_t body)
{
    make_directory(directory);
    auto paths = new_paths(recording, directory, extension);
    std::deque<new_version> files;
    std::vector<sample> samples;
    for (size_t i = 0; i < paths.size(); ++i)
    {
        const auto &item = recording.items()[i];
        auto &file = files.emplace_back(paths[i]).file();
        file.append(head(item));
        for (uint64_t number = 0; number < recording.frames(); ++number)
        {
            recording.read_frame(i, number, samples);
            body(file, item, number, samples);
        }
        files.back().finish();
    }
    for (auto &file : files)
    {
        file.put_into_place();
    }
    return paths;
}

} // namespace

std::vector<std::filesystem::path> export_csv(recording_reader &recording,
                                              const std::filesystem::path &directory)
{
    return write_items(
        recording, directory, ".csv",
        [](const recorded_item &) { return std::string("frame,sweep,point,distance_m,real,imag\n"); },
        [](output_file &file, const recorded_item &item, uint64_t number,
           const std::vector<sample> &samples) { file.append(csv_lines(item, number, samples)); });
}

std::vector<std::filesystem::path> export_npy(recording_reader &recording,
                                              const std::filesystem::path &directory)
{
    return write_items(
        recording, directory, ".npy", [&](const recorded_item &item) { return npy_head(recording, item); },
        [](output_file &file, const recorded_item &, uint64_t, const std::vector<sample> &samples) {
            const auto wide = widen(samples);
            file.append(std::as_bytes(std::span(wide)));
        });
}

} // namespace vantor
