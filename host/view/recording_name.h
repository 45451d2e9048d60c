/** @file
 * Checks the names that viewers choose for recordings.
 */
#ifndef VANTOR_RECORDING_NAME_H
#define VANTOR_RECORDING_NAME_H

#include <filesystem>
#include <string>

namespace vantor
{

/**
 * Returns the directory of a recording in recordings_directory.
 *
 * @param name  chosen by a viewer
 * @throws request_error if it cannot be the name of a directory there, with what to change
 */
std::filesystem::path named_recording(const std::string &name);

} // namespace vantor

#endif
