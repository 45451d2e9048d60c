/** @file
 * A time in UTC and its bound as two cells of a table.
 */
#ifndef VANTOR_UTC_CELLS_H
#define VANTOR_UTC_CELLS_H

#include <optional>
#include <string>
#include <string_view>

#include "vantor/utc_time.h"

namespace vantor
{

/**
 * Appends seconds since 1970 and the bound in seconds, both to the microsecond and with a comma after them;
 * both cells are empty if the time is not known. The bound also allows for the rounding of the time.
 */
void append_utc_cells(std::string &row, const std::optional<utc_time> &utc);

/** Reads the cells; false if they are not a time and its bound, and not both empty. */
bool read_utc_cells(std::string_view seconds, std::string_view bound, std::optional<utc_time> &utc);

} // namespace vantor

#endif
