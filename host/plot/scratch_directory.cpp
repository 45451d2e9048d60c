/** @file
 * The temporary files of a picture.
 */
#include "plot/scratch_directory.h"

#include <cstdlib>
#include <system_error>

#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** The directory of temporary files. */
std::filesystem::path temporary_files()
{
    std::error_code failure;
    auto directory = std::filesystem::temp_directory_path(failure);
    if (failure)
    {
        throw recording_error(
            "Cannot create temporary files: TMPDIR is not a directory that exists; set it to another one.");
    }
    return directory;
}

} // namespace

scratch_directory::scratch_directory()
{
    const auto parent = temporary_files();
    auto pattern = (parent / "vantor-plot-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
    {
        throw recording_error("Cannot create temporary files in " + parent.string() +
                              ": free space there, or set TMPDIR to another directory.");
    }
    path_ = pattern;
}

scratch_directory::~scratch_directory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void require_written(bool complete)
{
    if (!complete)
    {
        throw recording_error("Cannot write the temporary files of the picture to " +
                              temporary_files().string() +
                              ": free space there, or set TMPDIR to another directory.");
    }
}

} // namespace vantor
