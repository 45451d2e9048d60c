/** @file
 * The program's standard streams: what it prints for people.
 */
#ifndef VANTOR_LINUX_CONSOLE_H
#define VANTOR_LINUX_CONSOLE_H

#include <string>
#include <string_view>

/**
 * Opens those of the descriptors 0 to 2 that are closed, as /dev/null. Otherwise a link would get one of
 * them, and a host what is printed.
 */
void open_standard_streams();

/**
 * Replaces each character that would control the terminal or the text direction, such as an escape, and each
 * byte that is not UTF-8, by "?".
 */
std::string printable(std::string_view text);

/** Prints a line to standard error, as printable text; waits while that accepts none, unless the program must
 * end. */
void print_error(std::string_view text);

/** Prints a line to standard output, as printable text, and flushes it. */
void print_output(std::string_view text);

#endif
