/** @file
 * Joins words.
 */
#include "configuration/word_list.h"

namespace vantor
{

std::string join(const std::vector<std::string> &words, const std::string &separator)
{
    std::string text;
    for (const auto &word : words)
    {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

} // namespace vantor
