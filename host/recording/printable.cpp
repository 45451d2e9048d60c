/** @file
 * Makes text from servers and files safe to print on a terminal.
 */
#include "recording/printable.h"

#include <cstdint>
#include <iomanip>
#include <sstream>

namespace vantor
{
namespace
{

/** A character of a UTF-8 text. */
struct character
{
    uint32_t code = 0;
    size_t size = 0; /**< in bytes */
};

/** The length of a UTF-8 character in bytes, derived from its first byte. */
size_t length_of_character(unsigned char first)
{
    if (first < 0xC0 || first >= 0xF8)
    {
        return 1;
    }
    return first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

/** The first character of a text; a byte that does not start a valid character counts as one. */
character first_character(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text.front());
    const auto bytes = text.substr(0, length_of_character(first));
    character found{.code = first & (bytes.size() == 1 ? 0xFFU : 0x7FU >> bytes.size()),
                    .size = length_of_character(first)};
    for (const char c : bytes.substr(1))
    {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte & 0xC0U) != 0x80U)
        {
            return {.code = first, .size = 1};
        }
        found.code = found.code << 6U | (byte & 0x3FU);
    }
    return found.size == bytes.size() ? found : character{.code = first, .size = 1};
}

/** Whether a character controls a terminal or the text direction. */
bool is_control(uint32_t code)
{
    const auto within = [code](uint32_t first, uint32_t last) { return code >= first && code <= last; };
    return (code < 0x20 && code != '\t') || within(0x7F, 0x9F) || code == 0x61C || within(0x200E, 0x200F) ||
           within(0x2028, 0x202E) || within(0x2066, 0x2069);
}

/** Replaces each control character. */
template <typename replacement_t>
std::string replace_controls(std::string_view text, replacement_t replacement)
{
    std::string replaced;
    while (!text.empty())
    {
        const auto [code, size] = first_character(text);
        replaced += is_control(code) ? replacement(code) : std::string(text.substr(0, size));
        text.remove_prefix(size);
    }
    return replaced;
}

/** Escapes a control character of a JSON document; line feeds between members stay. */
std::string escaped(uint32_t code)
{
    if (code < 0x20)
    {
        return {static_cast<char>(code)};
    }
    std::ostringstream text;
    text << "\\u" << std::hex << std::setw(4) << std::setfill('0') << code;
    return text.str();
}

} // namespace

std::string printable(std::string_view text)
{
    return replace_controls(text, [](uint32_t) { return std::string("?"); });
}

std::string printable_json(std::string_view document)
{
    return replace_controls(document, escaped);
}

} // namespace vantor
