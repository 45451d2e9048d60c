/** @file
 * Scenes from and to text, for tests.
 */
#ifndef SCENE_TEXT_H
#define SCENE_TEXT_H

#include <string>

#include "zet_simulator_scene_json.h"

/** Reads a scene that must be valid. */
zet_simulator_scene_t scene_of(const std::string &text);

/** Reads an example scene. */
zet_simulator_scene_t example_scene(const std::string &name);

/** Why a scene is refused, with line and column; an empty text if it is not. */
std::string refusal_of(const std::string &text, uint16_t sensor_count = 0);

/** Why a scene is refused, without line and column. */
std::string reason_of(const std::string &text);

/** A scene as text. */
std::string text_of(const zet_simulator_scene_t &scene);

#endif
