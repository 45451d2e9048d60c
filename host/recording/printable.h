/** @file
 * Makes text from servers and files safe to print on a terminal.
 */
#ifndef VANTOR_PRINTABLE_H
#define VANTOR_PRINTABLE_H

#include <string>
#include <string_view>

namespace vantor
{

/**
 * Replaces each character that would control the terminal or the text direction, such as an escape, by "?".
 * Tabs stay.
 */
std::string printable(std::string_view text);

/** Returns an equivalent JSON document in which all such characters from U+007F on are escaped. */
std::string printable_json(std::string_view document);

} // namespace vantor

#endif
