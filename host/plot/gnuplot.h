/** @file
 * Runs the program gnuplot.
 */
#ifndef VANTOR_GNUPLOT_H
#define VANTOR_GNUPLOT_H

#include <filesystem>
#include <functional>
#include <string>

namespace vantor
{

/** Quotes a text as a single-quoted gnuplot string. */
std::string gnuplot_quote(const std::string &text);

/**
 * Runs a script.
 *
 * @param script    the script file
 * @param messages  a file for the messages of gnuplot
 * @param stop      called at least ten times per second, if set; true ends gnuplot
 * @return the start of the messages, as one line; empty if there are none
 * @throws drawing_stopped if asked to stop
 * @throws error if gnuplot is not installed or fails
 */
std::string run_gnuplot(const std::filesystem::path &script, const std::filesystem::path &messages,
                        const std::function<bool()> &stop = {});

} // namespace vantor

#endif
