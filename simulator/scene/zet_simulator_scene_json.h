/** @file
 * Scene files: a scene as a JSON document (docs/simulator.md).
 */
#ifndef ZET_SIMULATOR_SCENE_JSON_H
#define ZET_SIMULATOR_SCENE_JSON_H

#include "zet_simulator_scene.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A file that a scene names, as it is in memory. */
typedef struct
{
    const char *text; /**< null if it cannot be read */
    size_t size;      /**< in bytes */
} zet_simulator_file_t;

/**
 * Reads a file that a scene names.
 *
 * @param context     that of the source
 * @param name        as it is in the scene
 * @param error       receives a sentence if the file cannot be read
 * @param error_size  size of @p error in bytes
 * @return the file, valid until the next call
 */
typedef zet_simulator_file_t zet_simulator_read_file_t(void *context, const char *name, char *error,
                                                       size_t error_size);

/** What a scene is read from. */
typedef struct
{
    const char *text; /**< the JSON document, zero-terminated */
    size_t size;      /**< of the document in bytes, without the zero; bytes before it may be 0 as well */
    uint16_t
        sensor_count;     /**< sensor positions on the board, which has all sensors of the scene; 0 for any */
    uint32_t *body_count; /**< receives the number of bodies; null if it is not needed */
    zet_simulator_read_file_t *read_file; /**< reads files of tracks; null if there are none */
    void *context;                        /**< for read_file */
} zet_simulator_scene_source_t;

/**
 * Reads a scene.
 *
 * @param source      what to read
 * @param scene       receives the scene; unspecified on failure
 * @param error       receives one sentence: the place of the fault, what was found there, what it must be,
 * and line and column of the value or key
 * @param error_size  size of @p error in bytes; 1024 is enough for every sentence except those of read_file
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

/**
 * Writes a scene as a JSON document without spaces and line feeds, which zet_simulator_scene_from_json()
 * reads as the same scene. Optional values of 0 are left out where that is their default.
 *
 * @param scene  a valid scene; its targets have no oscillations or keyframes in common
 * @param text   receives the document, zero-terminated, or as much of it as has room; may be null if @p size
 * is 0
 * @param size   of @p text in bytes
 * @return the length of the document without the zero, also if it has no room
 */
size_t zet_simulator_scene_to_json(const zet_simulator_scene_t *scene, char *text, size_t size);

#ifdef __cplusplus
}
#endif

#endif
