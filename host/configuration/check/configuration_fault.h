/** @file
 * One thing that is wrong with a configuration document.
 */
#ifndef VANTOR_CONFIGURATION_FAULT_H
#define VANTOR_CONFIGURATION_FAULT_H

#include <string>

namespace vantor
{

/** One thing that is wrong with a configuration document. */
struct configuration_fault
{
    std::string pointer; /**< where, as a JSON pointer (RFC 6901); empty for the whole document */
    std::string got;     /**< what stands there */
    std::string allowed; /**< what may stand there, or why this may not */
    std::string nearest; /**< the allowed value closest to it; empty when there is none */
};

} // namespace vantor

#endif
