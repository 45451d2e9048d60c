/** @file
 * Looks ahead for a command that ends the session.
 */
#include "zet_vantor_server_end_watch.h"

#include <cstring>
#include <string_view>

namespace
{

/** The command `end`. White space is allowed between its tokens. */
constexpr std::string_view end_command = "{\"command\":\"end\"}";
constexpr std::string_view frame_word = "\"frame\"";

/** In zet_end_watch_t::end_letters: the line is not the command `end`. */
constexpr uint8_t no_match = UINT8_MAX;

/** Returns whether white space is allowed before a character of the command `end`, counted from 0. */
constexpr bool is_between_tokens(size_t index)
{
    constexpr size_t colon = end_command.find(':');
    return index <= 1 || index == colon || index == colon + 1 || index >= end_command.size() - 1;
}

constexpr bool is_white_space(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

/** Compares the next character of a line with the command `end`. */
void match_end(zet_end_watch_t *watch, char c)
{
    const size_t index = watch->end_letters;
    if (index == no_match || (is_between_tokens(index) && is_white_space(c)))
    {
        return;
    }
    const bool matches = index < end_command.size() && c == end_command[index];
    watch->end_letters = matches ? static_cast<uint8_t>(index + 1) : no_match;
}

/** Looks for `"frame"` in a line, and for the escape in which its letters could be written. */
void match_frame(zet_end_watch_t *watch, char c)
{
    if (c == frame_word[watch->frame_letters])
    {
        ++watch->frame_letters;
    }
    else
    {
        watch->frame_letters = c == frame_word.front() ? 1 : 0;
    }
    if (watch->frame_letters == frame_word.size())
    {
        watch->may_be_frame = true;
        watch->frame_letters = 0;
    }
    watch->may_be_frame |= c == 'u' && watch->after_backslash;
    watch->after_backslash = c == '\\';
}

void begin_line(zet_end_watch_t *watch)
{
    watch->line_is_empty = true;
    watch->may_be_frame = false;
    watch->after_backslash = false;
    watch->frame_letters = 0;
    watch->end_letters = 0;
}

/** Notes what the line was whose line feed is the last byte seen. */
void complete_line(zet_end_watch_t *watch, uint64_t executed)
{
    const bool is_end = watch->end_letters == end_command.size();
    if (!watch->line_is_empty)
    {
        watch->line = watch->seen;
    }
    if ((is_end || watch->may_be_frame) && watch->first <= executed)
    {
        watch->first = watch->seen;
        watch->first_is_end = is_end;
    }
    begin_line(watch);
}

} // namespace

void zet_end_watch_reset(zet_end_watch_t *watch, uint64_t position)
{
    *watch = {};
    watch->seen = position;
    begin_line(watch);
}

void zet_end_watch_look(zet_end_watch_t *watch, const char *data, size_t size, uint64_t executed)
{
    for (size_t i = 0; i < size; ++i)
    {
        ++watch->seen;
        if (data[i] == '\n')
        {
            complete_line(watch, executed);
            continue;
        }
        watch->line_is_empty &= data[i] == '\r';
        match_end(watch, data[i]);
        match_frame(watch, data[i]);
    }
}

bool zet_end_watch_finds_end(const zet_end_watch_t *watch, uint64_t executed)
{
    return watch->first > executed && watch->first_is_end;
}

bool zet_end_watch_finds_line(const zet_end_watch_t *watch, uint64_t executed)
{
    return watch->line > executed;
}
