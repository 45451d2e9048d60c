/** @file
 * What can go wrong with the files of a recording.
 */
#ifndef VANTOR_RECORDING_ERROR_H
#define VANTOR_RECORDING_ERROR_H

#include "vantor/errors.h"

namespace vantor
{

/** Output cannot be written. */
class recording_error : public error
{
public:
    using error::error;
};

/** What should be a recording is none, or not one that this program can read. */
class bad_recording : public error
{
public:
    using error::error;
};

} // namespace vantor

#endif
