/** @file
 * Writes one file per item of a recording.
 */
#ifndef VANTOR_ITEM_FILES_H
#define VANTOR_ITEM_FILES_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <vector>

#include "recording/output_file.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/**
 * Writes one file per item: all of them, complete, or none.
 *
 * @param recording  the recording to export
 * @param directory  where to write; it is created
 * @param extension  of the files, such as ".csv"
 * @param complete   called when all of them are written, before they get their names, if set; an exception
 * leaves none
 * @param write      writes the content of the file of an item, given by its index
 * @return the files written
 * @throws recording_error if a file exists already or cannot be written
 */
std::vector<std::filesystem::path> write_item_files(const recording_reader &recording,
                                                    const std::filesystem::path &directory,
                                                    const char *extension,
                                                    const std::function<void()> &complete,
                                                    const std::function<void(output_file &, size_t)> &write);

} // namespace vantor

#endif
