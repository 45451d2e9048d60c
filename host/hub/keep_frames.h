/** @file
 * Writes frames that were kept in memory to a recording.
 */
#ifndef VANTOR_KEEP_FRAMES_H
#define VANTOR_KEEP_FRAMES_H

#include <filesystem>
#include <vector>

#include "hub/frame_ring.h"
#include "vantor/recording_sink.h"
#include "vantor/session_description.h"

namespace vantor
{

/**
 * Writes frames to a complete recording. Can be called from any thread.
 *
 * @param frames     in the order in which they arrived
 * @param session    the description of their session, or of a later one on the same server: the metadata are
 *                   those of the first frame
 * @param directory  of the recording; must not exist, or must be empty
 * @return what the recording contains
 * @throws recording_error if there is no frame, or the recording cannot be written
 */
written_amount keep_frames(const std::vector<kept_frame> &frames, session_description session,
                           const std::filesystem::path &directory);

} // namespace vantor

#endif
