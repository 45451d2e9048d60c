/** @file
 * Checks scenes for people and programs.
 */
#ifndef VANTOR_LINUX_SCENE_CHECK_H
#define VANTOR_LINUX_SCENE_CHECK_H

#include "options.h"

/** Checks the scene, and prints what it contains, or what is wrong with it; returns whether it can be used.
 */
bool check_scene(const options_t &options);

#endif
