/** @file
 * Finds what has no effect in a valid scene, or may not be what was meant.
 */
#ifndef VANTOR_LINUX_SCENE_NOTES_H
#define VANTOR_LINUX_SCENE_NOTES_H

#include <string>
#include <vector>

#include "zet_simulator_scene.h"

/** Returns a sentence for each such thing in a valid scene. */
std::vector<std::string> scene_notes(const zet_simulator_scene_t &scene);

#endif
