/** @file
 * A temporary directory for a test.
 */
#ifndef VANTOR_TEMPORARY_DIRECTORY_H
#define VANTOR_TEMPORARY_DIRECTORY_H

#include <filesystem>
#include <string>
#include <string_view>

namespace vantor::test
{

/** A new, empty directory; the destructor removes it with its content. */
class temporary_directory
{
public:
    temporary_directory();
    temporary_directory(const temporary_directory &) = delete;
    temporary_directory &operator=(const temporary_directory &) = delete;
    temporary_directory(temporary_directory &&) = delete;
    temporary_directory &operator=(temporary_directory &&) = delete;
    ~temporary_directory();

    /** The path of a file in the directory. */
    [[nodiscard]] std::filesystem::path operator/(const std::string &name) const
    {
        return path_ / name;
    }

    /** Writes a file in the directory and returns its path. */
    [[nodiscard]] std::filesystem::path write(const std::string &name, std::string_view text) const;

private:
    std::filesystem::path path_;
};

/** The content of a file. */
std::string read_file(const std::filesystem::path &path);

} // namespace vantor::test

#endif
