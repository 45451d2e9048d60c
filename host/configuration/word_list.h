/** @file
 * Joins words.
 */
#ifndef VANTOR_WORD_LIST_H
#define VANTOR_WORD_LIST_H

#include <string>
#include <vector>

namespace vantor
{

/** Joins words with a separator. */
std::string join(const std::vector<std::string> &words, const std::string &separator);

} // namespace vantor

#endif
