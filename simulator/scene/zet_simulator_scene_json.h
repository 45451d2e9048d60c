/** @file
 * Scene files: a scene as a JSON document (docs/simulator.md).
 */
#ifndef ZET_SIMULATOR_SCENE_JSON_H
#define ZET_SIMULATOR_SCENE_JSON_H

#include "zet_simulator_scene.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Reads a scene.
 *
 * @param text        the JSON document, zero-terminated
 * @param scene       receives the scene; unspecified on failure
 * @param error       receives one sentence that names the invalid key and says what it must be
 * @param error_size  size of @p error in bytes; 512 is enough for every sentence
 * @return false when the document is not JSON or not a scene
 */
bool zet_simulator_scene_from_json(const char *text, zet_simulator_scene_t *scene, char *error,
                                   size_t error_size);

/** Size of a text that has room for every scene. */
#define ZET_SIMULATOR_SCENE_TEXT_SIZE 524288U

/**
 * Writes a scene as a JSON document without spaces and line feeds, which zet_simulator_scene_from_json()
 * reads as the same scene. Optional values of 0 are left out where that is their default.
 *
 * @param scene  a valid scene; its targets have no oscillations or keyframes in common
 * @param text   receives the document, zero-terminated; has room for ZET_SIMULATOR_SCENE_TEXT_SIZE bytes
 */
void zet_simulator_scene_to_json(const zet_simulator_scene_t *scene, char *text);

#ifdef __cplusplus
}
#endif

#endif
