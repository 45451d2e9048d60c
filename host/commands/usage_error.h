/** @file
 * An exception for command lines.
 */
#ifndef VANTOR_USAGE_ERROR_H
#define VANTOR_USAGE_ERROR_H

#include "vantor/errors.h"

namespace vantor
{

/** The command line is wrong, but only the command itself can notice that. */
class usage_error : public error
{
public:
    using error::error;
};

} // namespace vantor

#endif
