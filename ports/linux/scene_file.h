/** @file
 * Scene files of the Linux port.
 */
#ifndef VANTOR_LINUX_SCENE_FILE_H
#define VANTOR_LINUX_SCENE_FILE_H

#include <cstdint>
#include <string>

#include "zet_simulator_scene.h"

/**
 * Reads a scene for a board.
 *
 * @param path          of a scene file, or the name of an example if no file has this name
 * @param sensor_count  of the board
 * @param board         number of the board if several see the scene; otherwise 0
 * @throws std::runtime_error that says what is wrong with the scene
 */
zet_simulator_scene_t read_scene_file(const std::string &path, uint16_t sensor_count, uint16_t board);

#endif
