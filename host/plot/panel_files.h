/** @file
 * The files with the figures that gnuplot draws.
 */
#ifndef VANTOR_PANEL_FILES_H
#define VANTOR_PANEL_FILES_H

#include <filesystem>

#include "plot/item_analysis.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/**
 * Writes the figures of an item to files.
 *
 * @param base  path of the files without extension: "….track" and so on; for each sub-sweep, "…-0.level" and
 * so on. Levels are in dBFS.
 * @throws recording_error if the disk is full
 */
void write_panel_files(const std::filesystem::path &base, const recorded_item &item,
                       const item_analysis &analysis);

/** Writes a text file; throws like the function above. */
void write_scratch_file(const std::filesystem::path &path, const std::string &text);

} // namespace vantor

#endif
