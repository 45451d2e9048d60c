/** @file
 * Converts a recording to files for other programs: text tables (CSV) and NumPy arrays (NPY, NPZ).
 */
#ifndef VANTOR_EXPORTER_H
#define VANTOR_EXPORTER_H

#include <filesystem>
#include <functional>
#include <vector>

#include "vantor/recording_reader.h"

namespace vantor
{

/** What is called during an export; an exception ends it, without files. */
struct export_calls
{
    std::function<void()> row = {}; /**< for each row of a frame table or of the truth, if set */
    std::function<void()> complete =
        {}; /**< when all files are written, before they get their names, if set */
};

/**
 * Writes each item as text: a header, then one line per sample with the columns frame, sweep, point,
 * distance_m, real, imag, time_s and missing: frames missing before it, since the start of the recording.
 *
 * @param recording  the recording to export
 * @param directory  where to write; it is created
 * @param calls      what is called meanwhile
 * @return the files written
 * @throws recording_error if a file exists already or cannot be written; no file is created then
 */
std::vector<std::filesystem::path> export_csv(recording_reader &recording,
                                              const std::filesystem::path &directory,
                                              const export_calls &calls = {});

/**
 * Writes what simulated sensors should have found as text: a header, then one line per target and frame with
 * the columns frame, tick, time_s, temperature, noise_power, interference, target, distance_m, velocity_m_s,
 * amplitude, phase_rad, snr_db and body. A frame without targets has one line, which ends with empty cells.
 *
 * @param recording  the recording to export
 * @param directory  where to write; it is created
 * @param calls      what is called meanwhile
 * @return the files written
 * @throws bad_recording if the recording has no truth
 * @throws recording_error if a file exists already or cannot be written; no file is created then
 */
std::vector<std::filesystem::path> export_truth(const recording_reader &recording,
                                                const std::filesystem::path &directory,
                                                const export_calls &calls = {});

/**
 * Writes each item as an NPY file, version 1.0: a complex64 array with the axes frame, sweep and point.
 *
 * @param recording  the recording to export
 * @param directory  where to write; it is created
 * @param calls      what is called meanwhile
 * @return the files written
 * @throws recording_error if a file exists already or cannot be written; no file is created then
 */
std::vector<std::filesystem::path> export_npy(recording_reader &recording,
                                              const std::filesystem::path &directory,
                                              const export_calls &calls = {});

/**
 * Writes each item as an NPZ file: an archive of NPY files. `samples` is the complex64 array with the axes
 * frame, sweep and point; `distance_m` has the distance of each point; the others have a value for each
 * frame, and the names of the columns of the frame table; `missing` has the number of frames missing before
 * each, since the start of the recording.
 *
 * @param recording  the recording to export
 * @param directory  where to write; it is created
 * @param calls      what is called meanwhile
 * @return the files written
 * @throws recording_error if a file exists already or cannot be written; no file is created then
 */
std::vector<std::filesystem::path> export_npz(recording_reader &recording,
                                              const std::filesystem::path &directory,
                                              const export_calls &calls = {});

} // namespace vantor

#endif
