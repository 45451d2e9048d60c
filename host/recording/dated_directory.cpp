/** @file
 * Chooses directories for recordings.
 */
#include "recording/dated_directory.h"

#include <array>
#include <ctime>
#include <system_error>

namespace vantor
{

std::filesystem::path dated_directory(const std::string &name)
{
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    std::array<char, 32> text{};
    const auto length = std::strftime(text.data(), text.size(), "%Y%m%d-%H%M%S", &parts);
    const auto base =
        std::filesystem::path(recordings_directory) / (name + "-" + std::string(text.data(), length));
    auto candidate = base;
    std::error_code failure;
    for (int i = 2; std::filesystem::exists(candidate, failure); ++i)
    {
        candidate = base;
        candidate += "-";
        candidate += std::to_string(i);
    }
    return candidate;
}

} // namespace vantor
