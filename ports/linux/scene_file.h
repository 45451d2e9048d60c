/** @file
 * Scene files of the Linux port.
 */
#ifndef VANTOR_LINUX_SCENE_FILE_H
#define VANTOR_LINUX_SCENE_FILE_H

#include <cstdint>
#include <string>

#include "zet_simulator_scene.h"

/**
 * Reads a scene.
 *
 * @param path          of a scene file, or the name of an example if the file does not exist
 * @param sensor_count  of the board
 * @param body_count    receives the number of bodies, unless it is null
 * @throws std::runtime_error that says what is wrong with the scene
 */
zet_simulator_scene_t read_scene_file(const std::string &path, uint16_t sensor_count,
                                      uint32_t *body_count = nullptr);

/**
 * Keeps only the sensors of one board in a scene.
 *
 * @param board  number of the board if several see the scene; otherwise 0
 * @param path   of the scene, for the message
 * @throws std::runtime_error if the scene has sensors of other boards only
 */
void select_board(zet_simulator_scene_t &scene, uint16_t board, const std::string &path);

#endif
