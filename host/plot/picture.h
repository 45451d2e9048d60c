/** @file
 * Draws a recording: one row of pictures for each item.
 */
#ifndef VANTOR_PICTURE_H
#define VANTOR_PICTURE_H

#include <filesystem>
#include <optional>

#include "recording/session_reader.h"

namespace vantor
{

/**
 * Draws a recording.
 *
 * @param recording  with at least one frame of at least one item
 * @param output     the picture, a PNG file; it is replaced
 * @param distance   where phase and Doppler look, in metres; each item's strongest echo when not given
 * @throws bad_recording when there is nothing to draw
 * @throws recording_error when the picture cannot be written
 * @throws error when gnuplot is missing or fails
 */
void draw_recording(session_reader &recording, const std::filesystem::path &output,
                    std::optional<double> distance);

} // namespace vantor

#endif
