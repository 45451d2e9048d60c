/** @file
 * Checks the names that viewers choose for recordings.
 */
#include "view/recording_name.h"

#include <algorithm>
#include <string_view>
#include <system_error>

#include "recording/dated_directory.h"
#include "view/view_requests.h"

namespace vantor
{
namespace
{

/** The longest name, in bytes: file systems allow 255. */
constexpr size_t longest_name = 100;

/** Whether a character can be in a name on every system. */
bool is_allowed(char c)
{
    return static_cast<unsigned char>(c) >= ' ' && c != '\x7f' &&
           std::string_view("/\\:*?\"<>|").find(c) == std::string_view::npos;
}

} // namespace

std::filesystem::path named_recording(const std::string &name)
{
    if (name.size() > longest_name || name.starts_with('.') ||
        !std::all_of(name.begin(), name.end(), is_allowed))
    {
        throw request_error(
            "This cannot be the name of a recording; use at most 100 letters, digits, spaces, "
            "\"-\" and \"_\", and no dot at the start.");
    }
    auto directory = std::filesystem::path(recordings_directory) / name;
    std::error_code failure;
    if (std::filesystem::exists(directory, failure))
    {
        throw request_error("There is already a recording \"" + name + "\": choose another name.");
    }
    return directory;
}

} // namespace vantor
