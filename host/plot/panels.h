/** @file
 * The gnuplot commands for the panels of an item.
 */
#ifndef VANTOR_PANELS_H
#define VANTOR_PANELS_H

#include <cstddef>
#include <optional>
#include <string>

#include "plot/item_analysis.h"
#include "plot/page.h"
#include "plot/shared_axis.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** An item in a row of a page. */
struct panel_row
{
    const page &sheet;
    size_t row;
    const recorded_item &item;
    const item_analysis &analysis;
    std::string base; /**< path of its files without extension, as for write_panel_files() */
    std::optional<time_window> window = std::nullopt; /**< that axes of time show; all frames if not given */
};

/** The commands that draw level, level over time, phase and displacement, and the velocity spectrum. */
std::string draw_panels(const panel_row &place);

/** The commands that draw the velocity map, which is the fifth panel. */
std::string draw_velocity_map(const panel_row &place);

} // namespace vantor

#endif
