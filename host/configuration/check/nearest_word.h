/** @file
 * Finds the word that was probably meant.
 */
#ifndef VANTOR_NEAREST_WORD_H
#define VANTOR_NEAREST_WORD_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace vantor
{

/** The word with the closest number, the only one that begins like the text, or the one with the closest
 * spelling; null if none is close. */
nlohmann::ordered_json nearest_word(const std::string &text, const std::vector<std::string> &words);

} // namespace vantor

#endif
