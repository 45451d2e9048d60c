/** @file
 * Splits the bytes from the host into lines.
 */
#include "zet_vantor_server_line.h"

#include <cstring>

namespace
{

/** Completes a line: drops its carriage return and terminates it with a zero. */
void complete(zet_line_buffer_t *line)
{
    if (line->length > 0 && line->text[line->length - 1] == '\r')
    {
        --line->length;
    }
    line->text[line->length] = '\0';
    line->complete = true;
}

/** Adds a piece of a line, or drops it if the line is too long; returns whether the line is complete. */
bool take_piece(zet_line_buffer_t *line, const char *piece, size_t length, bool ends_line)
{
    if (!line->dropping)
    {
        std::memcpy(line->text + line->length, piece, length);
        line->length += length;
    }
    const bool completes = ends_line && !line->dropping;
    if (completes)
    {
        complete(line);
    }
    else if (ends_line)
    {
        zet_line_buffer_clear(line);
    }
    return completes;
}

} // namespace

void zet_line_buffer_init(zet_line_buffer_t *line, char *text, size_t size)
{
    line->text = text;
    line->room = size - 1;
    zet_line_buffer_clear(line);
}

bool zet_line_buffer_is_between_lines(const zet_line_buffer_t *line)
{
    return line->complete || (line->length == 0 && !line->dropping);
}

void zet_line_buffer_clear(zet_line_buffer_t *line)
{
    line->length = 0;
    line->complete = false;
    line->dropping = false;
}

zet_line_event_t zet_line_buffer_take(zet_line_buffer_t *line, const char **data, size_t *size)
{
    if (line->complete)
    {
        zet_line_buffer_clear(line);
    }
    while (*size > 0)
    {
        const char *piece = *data;
        const auto *line_feed = static_cast<const char *>(std::memchr(piece, '\n', *size));
        const size_t length = line_feed != nullptr ? static_cast<size_t>(line_feed - piece) : *size;
        if (!line->dropping && length > line->room - line->length)
        {
            line->dropping = true;
            return ZET_LINE_TOO_LONG;
        }
        const size_t taken = line_feed != nullptr ? length + 1 : length;
        *data += taken;
        *size -= taken;
        if (take_piece(line, piece, length, line_feed != nullptr))
        {
            return ZET_LINE_COMPLETE;
        }
    }
    return ZET_LINE_UNFINISHED;
}
