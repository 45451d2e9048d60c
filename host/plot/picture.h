/** @file
 * Draws a recording: pages with one row of panels for each item.
 */
#ifndef VANTOR_PICTURE_H
#define VANTOR_PICTURE_H

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "plot/drawing_stopped.h"
#include "plot/shared_axis.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** What to draw, and where. */
struct drawing
{
    std::filesystem::path output; /**< the PNG file of the first page; an existing file is replaced */
    std::string page_mark = "-";  /**< before the numbers of further pages in their names */
    std::string title = {};       /**< of the picture, such as the name of the recording */
    std::optional<double> distance =
        std::nullopt; /**< for phase and velocity, in metres; the strongest echo if not given */
    std::optional<shared_axis> axis = std::nullopt; /**< of the boards of a recording; its own if not given */
    std::function<bool()> stop = {};                /**< called often, if set; true ends the drawing */
    std::function<void()> complete =
        {}; /**< called before the pictures are written, if set; an exception leaves none */
};

/** What was drawn. */
struct drawn_pictures
{
    std::vector<std::filesystem::path> pages;
    std::vector<std::string> warnings;
};

/**
 * Draws a recording. A page has up to six items; further pages are named like "picture-2.png".
 *
 * @param recording  a recording with at least one frame of at least one item
 * @throws bad_recording if there is nothing to draw
 * @throws recording_error if a picture cannot be written; no file is changed then
 * @throws drawing_stopped if asked to stop; no file is changed then
 * @throws error if gnuplot is missing or fails
 */
drawn_pictures draw_recording(recording_reader &recording, const drawing &what);

/** The intervals of distances that the items of a recording cover, as text: "0.200 to 1.995 m". */
std::string covered_distances(const recording_reader &recording);

} // namespace vantor

#endif
