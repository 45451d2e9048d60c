/** @file
 * Chooses directories for recordings.
 */
#ifndef VANTOR_DATED_DIRECTORY_H
#define VANTOR_DATED_DIRECTORY_H

#include <filesystem>
#include <string>

namespace vantor
{

/** The directory of recordings that are stored where the user did not choose. */
inline constexpr const char *recordings_directory = "recordings";

/** Returns the path of a new directory in recordings_directory: the name and the current time. */
std::filesystem::path dated_directory(const std::string &name);

} // namespace vantor

#endif
