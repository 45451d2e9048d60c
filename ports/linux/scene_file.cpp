/** @file
 * Reads scene files.
 */
#include "scene_file.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "zet_simulator_scene_json.h"

zet_simulator_scene_t read_scene_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file)
    {
        throw std::runtime_error("cannot read the scene \"" + path + "\": " + std::strerror(errno));
    }
    zet_simulator_scene_t scene = {};
    std::array<char, 256> fault = {};
    if (!zet_simulator_scene_from_json(text.c_str(), &scene, fault.data(), fault.size()))
    {
        throw std::runtime_error("cannot use the scene \"" + path + "\": " + fault.data());
    }
    return scene;
}
