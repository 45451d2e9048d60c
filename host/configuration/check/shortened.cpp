/** @file
 * Shortens texts from documents for messages.
 */
#include "configuration/check/shortened.h"

namespace vantor
{

std::string shortened(std::string_view text)
{
    constexpr size_t longest = 40;
    if (text.size() <= longest)
    {
        return std::string(text);
    }
    auto end = longest;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
    {
        // Do not cut a multi-byte character.
        --end;
    }
    return std::string(text.substr(0, end)) + "…";
}

} // namespace vantor
