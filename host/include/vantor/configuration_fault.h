/** @file
 * A fault in a configuration document.
 */
#ifndef VANTOR_CONFIGURATION_FAULT_H
#define VANTOR_CONFIGURATION_FAULT_H

#include <cstddef>
#include <string>

#include <nlohmann/json.hpp>

namespace vantor
{

/** Highest number of faults that are reported at once. */
inline constexpr size_t most_faults = 100;

/** A fault in a configuration document. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct configuration_fault
{
    std::string pointer;            /**< where, as a JSON pointer (RFC 6901); empty for the document itself */
    std::string got;                /**< what is there */
    std::string allowed;            /**< what is allowed there, or why this is not */
    nlohmann::ordered_json nearest; /**< the closest allowed value: for an object, an object with the members
                                         to change; for a list, a number of elements; null if there is none */
};

} // namespace vantor

#endif
