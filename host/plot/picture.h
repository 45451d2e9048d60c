/** @file
 * Draws a recording: one row of pictures for each item.
 */
#ifndef VANTOR_PICTURE_H
#define VANTOR_PICTURE_H

#include <cstddef>
#include <filesystem>
#include <optional>

#include "recording/recording_reader.h"

namespace vantor
{

/** The sheet that a recording is drawn on, in pixels. */
struct sheet_format
{
    int width = 1900;
    int row_height = 380; /**< for each item; less when that makes the sheet too high */
    int highest = 32'000; /**< what draws it knows no more than 32,767 */
};

/** The height of a sheet with a row for each of at least one item. */
int sheet_height(const sheet_format &format, size_t items);

/**
 * Draws a recording.
 *
 * @param recording  with at least one frame of at least one item
 * @param output     the picture, a PNG file; it is replaced
 * @param distance   where phase and Doppler look, in metres; each item's strongest echo when not given
 * @param format     the sheet
 * @throws bad_recording when there is nothing to draw
 * @throws recording_error when the picture cannot be written
 * @throws error when gnuplot is missing or fails
 */
void draw_recording(recording_reader &recording, const std::filesystem::path &output,
                    std::optional<double> distance, const sheet_format &format = {});

} // namespace vantor

#endif
