/** @file
 * The program's standard streams.
 */
#include "console.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <unistd.h>

#include "link.h"
#include "zet_utf8.h"

namespace
{

/** Characters that follow each other, each as the number that its bytes in UTF-8 give. */
struct characters_t
{
    uint32_t first;
    uint32_t last;
};

/** The characters that control a terminal or the text direction. */
constexpr std::array control_characters = {
    characters_t{0x00, 0x1F},         characters_t{0x7F, 0xC29F},       characters_t{0xD89C, 0xD89C},
    characters_t{0xE2808E, 0xE2808F}, characters_t{0xE280A8, 0xE280AE}, characters_t{0xE281A6, 0xE281A9}};

bool is_control(std::string_view character)
{
    uint32_t number = 0;
    for (const char byte : character)
    {
        number = number << 8U | static_cast<uint8_t>(byte);
    }
    return std::ranges::any_of(control_characters, [number](const characters_t &range) {
        return number >= range.first && number <= range.last;
    });
}

/** Waits until standard error accepts a line; false if the program must end before. */
bool accepts_errors()
{
    // It may be a pipe that nobody reads, and a blocked write would not end with a signal.
    pollfd errors = {STDERR_FILENO, POLLOUT, 0};
    return poll(&errors, 1, 0) > 0 || wait_for(STDERR_FILENO, POLLOUT, -1) == wait_result_t::ready;
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
    if (accepts_errors())
    {
        std::cerr << printable(text) + "\n";
    }
}

void print_output(std::string_view text)
{
    std::cout << printable(text) << std::endl;
}
