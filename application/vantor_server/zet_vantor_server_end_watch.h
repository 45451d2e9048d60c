/** @file
 * Looks in the bytes from the host, ahead of their execution, for a command that ends the session.
 */
#ifndef ZET_VANTOR_SERVER_END_WATCH_H
#define ZET_VANTOR_SERVER_END_WATCH_H

#include <cstddef>
#include <cstdint>

/**
 * What is known of the bytes ahead. Positions count bytes since the start of the server.
 *
 * It recognises `end` as an object with only the member `"command"`, with any white space, but without
 * escapes. A line with the word `frame` or an escape may be the command `frame`, which is owed its answer.
 */
struct zet_end_watch_t
{
    uint64_t seen;      /**< behind the last byte that was looked at */
    uint64_t line;      /**< behind the last complete line that is not empty */
    uint64_t first;     /**< behind the first line, as far as known not executed, that is `end` or `frame` */
    bool first_is_end;  /**< which of both it is */
    bool line_is_empty; /**< the line so far contains only a carriage return, or nothing */
    bool may_be_frame;  /**< the line so far contains `"frame"` or an escape that can be a letter */
    bool after_backslash;  /**< the last byte is a backslash */
    uint8_t frame_letters; /**< characters of `"frame"` that the last bytes match */
    uint8_t end_letters;   /**< characters of the command `end` that the line so far matches */
};

/** Forgets everything ahead; the next byte is at a position, and begins a line. */
void zet_end_watch_reset(zet_end_watch_t *watch, uint64_t position);

/**
 * Looks at the next bytes.
 *
 * @param executed  behind the last byte of the line that is being executed
 */
void zet_end_watch_look(zet_end_watch_t *watch, const char *data, size_t size, uint64_t executed);

/** Returns whether an `end` is ahead, and no `frame` before it. */
bool zet_end_watch_finds_end(const zet_end_watch_t *watch, uint64_t executed);

/** Returns whether a complete line is ahead that is not empty. */
bool zet_end_watch_finds_line(const zet_end_watch_t *watch, uint64_t executed);

#endif
