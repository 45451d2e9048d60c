/** @file
 * Creates directories for recordings.
 */
#ifndef VANTOR_NEW_DIRECTORY_H
#define VANTOR_NEW_DIRECTORY_H

#include <filesystem>

namespace vantor
{

/**
 * Creates a directory, durably; it may exist already if it is empty.
 *
 * @throws recording_error if it cannot be created, is not empty, or is behind a link in a recording
 */
void make_new_directory(const std::filesystem::path &directory);

} // namespace vantor

#endif
