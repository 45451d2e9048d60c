/** @file
 * A fault in a configuration document.
 */
#ifndef VANTOR_CONFIGURATION_FAULT_H
#define VANTOR_CONFIGURATION_FAULT_H

#include <string>

namespace vantor
{

/** A fault in a configuration document. */
struct configuration_fault
{
    std::string pointer; /**< where, as a JSON pointer (RFC 6901); empty for the document itself */
    std::string got;     /**< what is there */
    std::string allowed; /**< what is allowed there, or why this is not */
    std::string nearest; /**< the closest allowed value; empty if there is none */
};

} // namespace vantor

#endif
