/** @file
 * The program's standard streams.
 */
#include "console.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

#include "zet_utf8.h"

namespace
{

/** Characters that follow each other, in UTF-8. Their order is that of the bytes. */
struct characters_t
{
    std::string_view first;
    std::string_view last;
};

/** The characters that control a terminal or the text direction. */
constexpr std::array control_characters = {characters_t{{"\0", 1}, "\x1F"},
                                           characters_t{"\x7F", "\xC2\x9F"},
                                           characters_t{"\xD8\x9C", "\xD8\x9C"},
                                           characters_t{"\xE2\x80\x8E", "\xE2\x80\x8F"},
                                           characters_t{"\xE2\x80\xA8", "\xE2\x80\xAE"},
                                           characters_t{"\xE2\x81\xA6", "\xE2\x81\xA9"}};

bool is_control(std::string_view character)
{
    return std::ranges::any_of(control_characters, [character](const characters_t &range) {
        return character >= range.first && character <= range.last;
    });
}

} // namespace

void open_standard_streams()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    {
        if (fcntl(descriptor, F_GETFD) < 0)
        {
            // It becomes the lowest descriptor that is closed, which is this one.
            static_cast<void>(open("/dev/null", O_RDWR));
        }
    }
}

std::string printable(std::string_view text)
{
    std::string safe;
    while (!text.empty())
    {
        const size_t length = zet_utf8_sequence_length(text.data(), text.size());
        const std::string_view character = text.substr(0, length);
        safe += character.empty() || is_control(character) ? "?" : character;
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return safe;
}

void print_error(std::string_view text)
{
    std::cerr << printable(text) + "\n";
}

void print_output(std::string_view text)
{
    std::cout << printable(text) << std::endl;
}
