/** @file
 * The files of the repository.
 */
#ifndef REPOSITORY_H
#define REPOSITORY_H

#include <filesystem>
#include <string>
#include <vector>

namespace structure_tests
{

/** The headers of a folder of the repository, including those in subfolders, in order. */
std::vector<std::filesystem::path> headers_of(const std::string &folder);

/** The content of a file; empty if it cannot be read. */
std::string text_of(const std::filesystem::path &path);

} // namespace structure_tests

#endif
