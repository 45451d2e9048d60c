/** @file
 * How many files the program can have open.
 */
#ifndef VANTOR_OPEN_FILES_H
#define VANTOR_OPEN_FILES_H

#include <cstddef>

namespace vantor
{

/**
 * Checks that the limit of the system allows further open files.
 *
 * @throws recording_error if it does not
 */
void require_open_files(size_t further);

} // namespace vantor

#endif
