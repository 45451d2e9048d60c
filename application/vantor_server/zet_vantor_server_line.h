/** @file
 * Cutting the bytes from the host into lines.
 */
#ifndef ZET_VANTOR_SERVER_LINE_H
#define ZET_VANTOR_SERVER_LINE_H

#include <cstddef>
#include <cstdint>

/** What zet_line_buffer_take found. */
enum zet_line_event_t : uint8_t
{
    ZET_LINE_UNFINISHED, /**< all bytes taken, no line feed yet */
    ZET_LINE_COMPLETE,   /**< a line is in the buffer */
    ZET_LINE_TOO_LONG,   /**< the line does not fit; it is dropped up to its line feed */
};

/** A line in the making. */
struct zet_line_buffer_t
{
    char *text;    /**< the line, closed by a zero when it is complete */
    size_t room;   /**< longest line that fits */
    size_t length; /**< bytes taken so far; of a complete line without its line end */
    bool complete; /**< a complete line is held, which the next byte replaces */
    bool dropping; /**< an overlong line is being dropped */
};

/**
 * Makes a line buffer.
 *
 * @param text  memory for a line
 * @param size  its size: the longest line, its carriage return included if it has one, plus one
 */
void zet_line_buffer_init(zet_line_buffer_t *line, char *text, size_t size);

/** Tells whether nothing of a line is held, or only one that is complete. */
bool zet_line_buffer_is_between_lines(const zet_line_buffer_t *line);

/** Forgets what has been taken. */
void zet_line_buffer_clear(zet_line_buffer_t *line);

/**
 * Takes bytes up to the end of a line.
 *
 * @param data  the bytes; moved on by those taken
 * @param size  their number; reduced likewise
 */
zet_line_event_t zet_line_buffer_take(zet_line_buffer_t *line, const char **data, size_t *size);

#endif
