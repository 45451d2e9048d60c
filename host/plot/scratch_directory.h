/** @file
 * The temporary files of a picture.
 */
#ifndef VANTOR_SCRATCH_DIRECTORY_H
#define VANTOR_SCRATCH_DIRECTORY_H

#include <filesystem>
#include <string>

namespace vantor
{

/** A temporary directory for the files of gnuplot; the destructor removes it with its content. */
class scratch_directory
{
public:
    /** Creates the directory; throws recording_error if that is not possible. */
    scratch_directory();
    scratch_directory(const scratch_directory &) = delete;
    scratch_directory &operator=(const scratch_directory &) = delete;
    scratch_directory(scratch_directory &&) = delete;
    scratch_directory &operator=(scratch_directory &&) = delete;
    ~scratch_directory();

    /** The path of a file in the directory. */
    [[nodiscard]] std::filesystem::path operator/(const std::string &name) const
    {
        return path_ / name;
    }

private:
    std::filesystem::path path_;
};

/** Throws recording_error if something could not be written to a scratch directory. */
void require_written(bool complete);

} // namespace vantor

#endif
