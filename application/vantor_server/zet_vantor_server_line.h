/** @file
 * Splits the bytes from the host into lines.
 */
#ifndef ZET_VANTOR_SERVER_LINE_H
#define ZET_VANTOR_SERVER_LINE_H

#include <cstddef>
#include <cstdint>

/** What zet_line_buffer_take found. */
enum zet_line_event_t : uint8_t
{
    ZET_LINE_UNFINISHED, /**< all bytes consumed, no line feed yet */
    ZET_LINE_COMPLETE,   /**< a line is in the buffer */
    ZET_LINE_TOO_LONG,   /**< the line does not fit; it is dropped up to its line feed */
};

/** A line being received. */
struct zet_line_buffer_t
{
    char *text;    /**< the line, zero-terminated when it is complete */
    size_t room;   /**< longest line that fits */
    size_t length; /**< bytes received so far; of a complete line without its line end */
    bool complete; /**< the buffer contains a complete line, which the next byte replaces */
    bool dropping; /**< a line that is too long is being dropped */
};

/**
 * Sets up a line buffer.
 *
 * @param text  memory for a line
 * @param size  its size: the longest line, including a carriage return if it has one, plus one
 */
void zet_line_buffer_init(zet_line_buffer_t *line, char *text, size_t size);

/** Returns whether the buffer contains no part of a line, or a complete one. */
bool zet_line_buffer_is_between_lines(const zet_line_buffer_t *line);

/** Discards the contents of the buffer. */
void zet_line_buffer_clear(zet_line_buffer_t *line);

/**
 * Consumes bytes up to the end of a line.
 *
 * @param data  the bytes; advanced past those consumed
 * @param size  their number; reduced accordingly
 */
zet_line_event_t zet_line_buffer_take(zet_line_buffer_t *line, const char **data, size_t *size);

#endif
