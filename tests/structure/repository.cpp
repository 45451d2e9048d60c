/** @file
 * The files of the repository.
 */
#include "repository.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace structure_tests
{

namespace fs = std::filesystem;

std::vector<fs::path> headers_of(const std::string &folder)
{
    std::vector<fs::path> headers;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(fs::path(PROJECT_ROOT) / folder))
    {
        if (entry.path().extension() == ".h")
        {
            headers.push_back(entry.path());
        }
    }
    std::sort(headers.begin(), headers.end());
    return headers;
}

std::string text_of(const fs::path &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace structure_tests
