/** @file
 * Finds the functions of a header that have a comment.
 */
#ifndef DOCUMENTED_FUNCTIONS_H
#define DOCUMENTED_FUNCTIONS_H

#include <string>
#include <vector>

namespace structure_tests
{

/** A function or a function type that a header declares. */
struct declaration_t
{
    std::string name;
    bool is_documented; /**< whether it has its own Doxygen comment directly before it */

    bool operator==(const declaration_t &) const = default;
};

/**
 * Finds the functions and the function types that a header declares, outside of structures.
 *
 * @param header  text of a C header, which may contain `extern "C"` for C++
 */
std::vector<declaration_t> declared_functions(const std::string &header);

} // namespace structure_tests

#endif
