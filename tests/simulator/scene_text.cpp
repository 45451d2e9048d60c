/** @file
 * Scenes from and to text, for tests.
 */
#include "scene_text.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <sstream>

zet_simulator_scene_t scene_of(const std::string &text)
{
    zet_simulator_scene_t scene = {};
    std::array<char, 1024> error = {};
    const zet_simulator_scene_source_t source = {text.c_str(), text.size(), 0, nullptr, nullptr, nullptr};
    EXPECT_TRUE(zet_simulator_scene_from_json(&source, &scene, error.data(), error.size())) << error.data();
    return scene;
}

zet_simulator_scene_t example_scene(const std::string &name)
{
    std::stringstream text;
    text << std::ifstream(EXAMPLE_SCENES "/" + name + ".json").rdbuf();
    return scene_of(text.str());
}

std::string refusal_of(const std::string &text, uint16_t sensor_count)
{
    zet_simulator_scene_t scene = {};
    std::array<char, 1024> error = {};
    const zet_simulator_scene_source_t source = {text.c_str(), text.size(), sensor_count,
                                                 nullptr,      nullptr,     nullptr};
    const bool valid = zet_simulator_scene_from_json(&source, &scene, error.data(), error.size());
    EXPECT_EQ(valid, error.front() == '\0') << error.data();
    return error.data();
}

std::string reason_of(const std::string &text)
{
    const std::string refusal = refusal_of(text);
    const size_t place = refusal.rfind(" (line ");
    EXPECT_NE(place, std::string::npos) << refusal;
    return refusal.substr(0, place);
}

std::string text_of(const zet_simulator_scene_t &scene)
{
    std::string text(zet_simulator_scene_to_json(&scene, nullptr, 0), ' ');
    EXPECT_EQ(zet_simulator_scene_to_json(&scene, text.data(), text.size() + 1), text.size());
    return text;
}
