/** @file
 * Runs the program gnuplot.
 */
#ifndef VANTOR_GNUPLOT_H
#define VANTOR_GNUPLOT_H

#include <filesystem>
#include <string>

namespace vantor
{

/** Quotes a text as a single-quoted gnuplot string. */
std::string gnuplot_quote(const std::string &text);

/**
 * Runs a script.
 *
 * @param script  the script file
 * @throws error if gnuplot is not installed or fails
 */
void run_gnuplot(const std::filesystem::path &script);

} // namespace vantor

#endif
