/** @file
 * Reads the track of a target from a file with comma-separated values.
 */
#ifndef ZET_SIMULATOR_TRACK_FILE_H
#define ZET_SIMULATOR_TRACK_FILE_H

#include "scene/scene_reading.h"

namespace zet_simulator
{

/** The key of a target with the name of such a file. */
constexpr const char *track_file_key = "track_file";

/** A track that was read. */
struct track_file
{
    uint16_t count; /**< keyframes that were added to the scene */
    bool in_space;  /**< they are places, not distances */
};

/**
 * Reads a track and adds its keyframes to the scene.
 *
 * @param target     its place, for messages
 * @param name       the value of the key in the scene
 * @param has_place  the target has a place itself, so that the track must have places, too
 */
bool read_track_file(scene_reading &reading, const scene_place &target, const cJSON *name, bool has_place,
                     track_file &track);

} // namespace zet_simulator

#endif
