/** @file
 * Shortens texts from documents for messages.
 */
#ifndef VANTOR_SHORTENED_H
#define VANTOR_SHORTENED_H

#include <string>
#include <string_view>

namespace vantor
{

/** A text in UTF-8 of about 40 bytes at most: the start of a longer one, and an ellipsis. */
std::string shortened(std::string_view text);

} // namespace vantor

#endif
