/** @file
 * Checks the names that viewers choose for recordings.
 */
#include "view/recording_name.h"

#include <system_error>

#include "recording/dated_directory.h"
#include "recording/printable.h"
#include "view/view_requests.h"

namespace vantor
{
namespace
{

/** The longest name, in bytes: file systems allow 255. */
constexpr size_t longest_name = 100;

/** Whether every character of a name can be in one on every system, and is shown as it is. */
bool is_allowed(const std::string &name)
{
    return name.find_first_of("/\\:*?\"<>|\t") == std::string::npos && printable(name) == name;
}

} // namespace

std::filesystem::path named_recording(const std::string &name)
{
    if (name.size() > longest_name || name.starts_with('.') || !is_allowed(name))
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
