/** @file
 * Scene files of the Linux port.
 */
#ifndef VANTOR_LINUX_SCENE_FILE_H
#define VANTOR_LINUX_SCENE_FILE_H

#include <cstdint>
#include <string>

#include "zet_simulator_scene.h"

/** Reads a scene file, or the example with this name if there is no such file, for a board; throws
 * std::runtime_error that says what is wrong with it. */
zet_simulator_scene_t read_scene_file(const std::string &path, uint16_t sensor_count);

#endif
