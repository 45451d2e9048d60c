/** @file
 * A temporary directory for a test.
 */
#include "temporary_directory.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace vantor::test
{

temporary_directory::temporary_directory()
{
    auto pattern = (std::filesystem::temp_directory_path() / "vantor-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
    {
        throw std::runtime_error("cannot create a temporary directory");
    }
    path_ = pattern;
}

temporary_directory::~temporary_directory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path temporary_directory::write(const std::string &name, std::string_view text) const
{
    std::ofstream(path_ / name, std::ios::binary) << text;
    return path_ / name;
}

std::string read_file(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace vantor::test
