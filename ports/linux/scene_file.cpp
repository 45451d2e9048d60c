/** @file
 * Reads scene files.
 */
#include "scene_file.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "zet_simulator_scene_json.h"

namespace
{

/** Largest scene that is read, far more than a scene can have. */
constexpr size_t largest_scene = size_t{1} << 18;

/** Reads a text from a file or a pipe. */
std::string read_text(const std::string &path)
{
    std::error_code failure;
    if (std::filesystem::is_directory(path, failure))
    {
        throw std::runtime_error("cannot read the scene \"" + path + "\": it is a directory; use a file");
    }
    std::ifstream file(path, std::ios::binary);
    std::string text(largest_scene + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(file.gcount()));
    if (text.empty() && !file.eof())
    {
        throw std::runtime_error("cannot read the scene \"" + path + "\": " + std::strerror(errno));
    }
    if (text.size() > largest_scene)
    {
        throw std::runtime_error("cannot use the scene \"" + path + "\": it has more than 256 KiB");
    }
    return text;
}

} // namespace

zet_simulator_scene_t read_scene_file(const std::string &path)
{
    const std::string text = read_text(path);
    zet_simulator_scene_t scene = {};
    std::array<char, 256> fault = {};
    if (!zet_simulator_scene_from_json(text.c_str(), &scene, fault.data(), fault.size()))
    {
        throw std::runtime_error("cannot use the scene \"" + path + "\": " + fault.data());
    }
    return scene;
}
