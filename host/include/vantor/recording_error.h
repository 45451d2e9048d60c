/** @file
 * Failures with the files of a recording.
 */
#ifndef VANTOR_RECORDING_ERROR_H
#define VANTOR_RECORDING_ERROR_H

#include "vantor/errors.h"

namespace vantor
{

/** An output file cannot be written. */
class recording_error : public error
{
public:
    using error::error;
};

/** The files are not a recording that this program can read. */
class bad_recording : public error
{
public:
    using error::error;
};

/** A recording is damaged: parts are missing, or differ from what was recorded. */
class damaged_recording : public bad_recording
{
public:
    using bad_recording::bad_recording;
};

} // namespace vantor

#endif
