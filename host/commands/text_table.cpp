/** @file
 * Formats tables and numbers as text.
 */
#include "commands/text_table.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <ostream>
#include <utility>

#include "recording/number_text.h"

namespace vantor
{

text_table::text_table(std::vector<std::string> head)
{
    rows_.push_back(std::move(head));
}

void text_table::add(std::vector<std::string> row)
{
    rows_.push_back(std::move(row));
}

void text_table::print(std::ostream &out) const
{
    std::vector<size_t> widths(rows_.front().size());
    for (const auto &row : rows_)
    {
        for (size_t i = 0; i < widths.size(); ++i)
        {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const auto &row : rows_)
    {
        for (size_t i = 0; i < widths.size(); ++i)
        {
            out << (i == 0 ? "" : "  ") << std::setw(static_cast<int>(widths[i])) << row[i];
        }
        out << "\n";
    }
}

} // namespace vantor
