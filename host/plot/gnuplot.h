/** @file
 * Runs the program gnuplot.
 */
#ifndef VANTOR_GNUPLOT_H
#define VANTOR_GNUPLOT_H

#include <filesystem>
#include <string>

namespace vantor
{

/** A text as gnuplot's single-quoted string. */
std::string gnuplot_quote(const std::string &text);

/**
 * Runs a script.
 *
 * @param script  the file
 * @throws error when gnuplot is not installed or reports a fault
 */
void run_gnuplot(const std::filesystem::path &script);

} // namespace vantor

#endif
