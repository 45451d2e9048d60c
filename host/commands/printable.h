/** @file
 * Texts of servers and files for a terminal, without characters that would control it.
 */
#ifndef VANTOR_PRINTABLE_H
#define VANTOR_PRINTABLE_H

#include <string>
#include <string_view>

namespace vantor
{

/**
 * A text for a person: "?" replaces each character that would control the terminal or the direction of the
 * text, such as an escape, except the tab.
 */
std::string printable(std::string_view text);

/** A JSON document that means the same, with all such characters from U+007F on escaped. */
std::string printable_json(std::string_view document);

} // namespace vantor

#endif
