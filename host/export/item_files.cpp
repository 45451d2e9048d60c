/** @file
 * Writes one file per item of a recording.
 */
#include "export/item_files.h"

#include <algorithm>
#include <deque>
#include <system_error>

#include "recording/file_replacement.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** The paths of the files of all items; throws recording_error if one exists already. */
std::vector<std::filesystem::path> new_paths(const recording_reader &recording,
                                             const std::filesystem::path &directory, const char *extension)
{
    std::vector<std::filesystem::path> paths;
    for (const auto &item : recording.items())
    {
        const auto &path = paths.emplace_back(directory / (item.name + extension));
        std::error_code failure;
        if (std::filesystem::exists(std::filesystem::symlink_status(path, failure)))
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

/** Puts all files into their places, which are empty, or none. */
void put_into_place(std::deque<new_version> &files)
{
    try
    {
        std::ranges::for_each(files, &new_version::put_into_place);
    }
    catch (const recording_error &)
    {
        std::ranges::for_each(files, &new_version::withdraw);
        throw;
    }
}

} // namespace

std::vector<std::filesystem::path> write_item_files(const recording_reader &recording,
                                                    const std::filesystem::path &directory,
                                                    const char *extension,
                                                    const std::function<void()> &complete,
                                                    const std::function<void(output_file &, size_t)> &write)
{
    require_no_link_in_recording(directory);
    make_directory(directory);
    auto paths = new_paths(recording, directory, extension);
    std::deque<new_version> files;
    for (size_t i = 0; i < paths.size(); ++i)
    {
        auto &file = files.emplace_back(paths[i]);
        write(file.file(), i);
        file.finish();
    }
    if (complete)
    {
        complete();
    }
    put_into_place(files);
    return paths;
}

} // namespace vantor
