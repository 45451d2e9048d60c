/** @file
 * Draws a recording: one row of pictures per item.
 */
#ifndef VANTOR_PICTURE_H
#define VANTOR_PICTURE_H

#include <cstddef>
#include <filesystem>
#include <optional>

#include "recording/recording_reader.h"

namespace vantor
{

/** The size of the picture of a recording, in pixels. */
struct sheet_format
{
    int width = 1900;
    int row_height = 380; /**< for each item; less if the picture would be too high */
    int highest = 32'000; /**< the drawing library supports at most 32,767 */
};

/** The height of a picture with a row for each item; there must be at least one. */
int sheet_height(const sheet_format &format, size_t items);

/**
 * Draws a recording.
 *
 * @param recording  a recording with at least one frame of at least one item
 * @param output     the PNG file to write; an existing file is replaced
 * @param distance   distance for phase and Doppler, in metres; the strongest echo of each item if not given
 * @param format     the size of the picture
 * @throws bad_recording if there is nothing to draw
 * @throws recording_error if the picture cannot be written
 * @throws error if gnuplot is missing or fails
 */
void draw_recording(recording_reader &recording, const std::filesystem::path &output,
                    std::optional<double> distance, const sheet_format &format = {});

} // namespace vantor

#endif
