/** @file
 * Which functions of a header have a comment.
 */
#ifndef DOCUMENTED_FUNCTIONS_H
#define DOCUMENTED_FUNCTIONS_H

#include <string>
#include <vector>

namespace structure_tests
{

/** A function or a type of functions that a header declares. */
struct declaration_t
{
    std::string name;
    bool is_documented; /**< directly behind a Doxygen comment of its own */

    bool operator==(const declaration_t &) const = default;
};

/**
 * Finds the functions and the types of functions that a header declares, outside of records.
 *
 * @param header  text of a header in C, also one with `extern "C"` for C++
 */
std::vector<declaration_t> declared_functions(const std::string &header);

} // namespace structure_tests

#endif
