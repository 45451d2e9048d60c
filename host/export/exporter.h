/** @file
 * Turns a recording into files for other programs: text tables (CSV) and NumPy arrays (NPY).
 */
#ifndef VANTOR_EXPORTER_H
#define VANTOR_EXPORTER_H

#include <filesystem>
#include <vector>

#include "recording/recording_reader.h"

namespace vantor
{

/**
 * Writes each item as text: a head, then one line for each sample with the columns frame, sweep, point,
 * distance_m, real and imag.
 *
 * @param recording  what to write
 * @param directory  where to; it is created
 * @return the files written
 * @throws recording_error when a file exists or cannot be written
 */
std::vector<std::filesystem::path> export_csv(recording_reader &recording,
                                              const std::filesystem::path &directory);

/**
 * Writes each item as a NumPy array of version 1.0, complex64, with the axes frame, sweep and point.
 *
 * @param recording  what to write
 * @param directory  where to; it is created
 * @return the files written
 * @throws recording_error when a file exists or cannot be written
 */
std::vector<std::filesystem::path> export_npy(recording_reader &recording,
                                              const std::filesystem::path &directory);

} // namespace vantor

#endif
