/** @file
 * An exception for drawings that are interrupted.
 */
#ifndef VANTOR_DRAWING_STOPPED_H
#define VANTOR_DRAWING_STOPPED_H

#include "vantor/errors.h"

namespace vantor
{

/** The user has asked to stop. */
class drawing_stopped : public error
{
public:
    drawing_stopped() : error("Drawing was stopped.")
    {
    }
};

} // namespace vantor

#endif
