/** @file
 * Scene files: a scene as a JSON document (docs/simulator.md).
 */
#ifndef ZET_SIMULATOR_SCENE_JSON_H
#define ZET_SIMULATOR_SCENE_JSON_H

#include "zet_simulator_scene.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What a scene is read from. */
typedef struct
{
    const char *text; /**< the JSON document, zero-terminated */
    size_t size;      /**< of the document in bytes, without the zero; bytes before it may be 0 as well */
    uint16_t
        sensor_count;     /**< sensor positions on the board, which has all sensors of the scene; 0 for any */
    uint32_t *body_count; /**< receives the number of bodies; null if it is not needed */
} zet_simulator_scene_source_t;

/**
 * Reads a scene.
 *
 * @param source      what to read
 * @param scene       receives the scene; unspecified on failure
 * @param error       receives one sentence: the place of the fault, what was found there, what it must be,
 * and line and column of the value or key
 * @param error_size  size of @p error in bytes; 1024 is enough for every sentence
 * @return false when the document is not JSON or not a scene
 */
bool zet_simulator_scene_from_json(const zet_simulator_scene_source_t *source, zet_simulator_scene_t *scene,
                                   char *error, size_t error_size);

/**
 * Finds when the last thing happens in a scene: the last time at which a target moves, appears or disappears,
 * or an interferer starts or stops. Faults are not considered, because they count calls, and neither is
 * hardware.
 *
 * @param end_s  receives the time in seconds
 * @return false if targets, interferers or temperatures never stop changing
 */
bool zet_simulator_scene_end(const zet_simulator_scene_t *scene, double *end_s);

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
