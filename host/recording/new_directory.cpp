/** @file
 * Creates directories for recordings.
 */
#include "recording/new_directory.h"

#include <algorithm>
#include <system_error>
#include <vector>

#include "recording/file_replacement.h"
#include "recording/output_file.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** The directories to which creating a directory adds one, from the innermost on. */
std::vector<std::filesystem::path> parents_that_change(const std::filesystem::path &directory)
{
    std::vector<std::filesystem::path> parents;
    std::error_code failure;
    for (auto place = std::filesystem::absolute(directory, failure);
         place.has_relative_path() && !std::filesystem::exists(place, failure); place = place.parent_path())
    {
        parents.push_back(place.parent_path());
    }
    return parents;
}

} // namespace

void make_new_directory(const std::filesystem::path &directory)
{
    require_no_link_in_recording(directory);
    const auto parents = parents_that_change(directory);
    std::error_code failure;
    std::filesystem::create_directories(directory, failure);
    const bool empty = !failure && std::filesystem::is_empty(directory, failure);
    if (failure)
    {
        throw recording_error("Cannot create the directory " + directory.string() + ": " + failure.message() +
                              ".");
    }
    if (!empty)
    {
        throw recording_error("The directory " + directory.string() +
                              " is not empty: choose another one; recordings are never overwritten.");
    }
    std::for_each(parents.begin(), parents.end(), sync_directory);
}

} // namespace vantor
