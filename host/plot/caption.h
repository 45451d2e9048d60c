/** @file
 * The texts in the pictures of a recording.
 */
#ifndef VANTOR_CAPTION_H
#define VANTOR_CAPTION_H

#include <cstddef>
#include <string>
#include <vector>

#include "plot/item_analysis.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** Names an item: "Sensor 2 (group 1, item 1)". */
std::string item_title(const recorded_item &item);

/** Describes a recording: when its first frame was measured, or else arrived, sensor and number of frames. */
std::string describe_recording(const recording_reader &recording, const time_figures &times);

/** Describes how an item was measured: profiles, gains and rates. */
std::string describe_settings(const recorded_item &item, const item_analysis &analysis);

/** Describes where the echoes of an item are, and how frames that are missing or saturated are shown. */
std::string describe_echo(const recorded_item &item, const item_analysis &analysis);

/** Warnings in one line; of many, only the first. */
std::string joined(const std::vector<std::string> &lines);

/** Names the level at the point: "strongest echo at 1.200 m". */
std::string level_name(const recorded_item &item, const item_analysis &analysis);

/** The distance of a point in metres, or its number if distances are unknown. */
std::string place_name(const recorded_item &item, size_t point);

/** Warnings about motion that is too fast for the rates of frames and sweeps. */
std::vector<std::string> aliasing_warnings(const item_analysis &analysis);

} // namespace vantor

#endif
