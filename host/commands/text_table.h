/** @file
 * Formats tables and numbers as text.
 */
#ifndef VANTOR_TEXT_TABLE_H
#define VANTOR_TEXT_TABLE_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace vantor
{

/** A table in which each column is as wide as its widest cell. */
class text_table
{
public:
    /** @param head  the column names, in ASCII */
    explicit text_table(std::vector<std::string> head);

    /** Adds a row with one cell per column, in ASCII. */
    void add(std::vector<std::string> row);

    /** Writes the table: a line with the column names, then one line per row. */
    void print(std::ostream &out) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

} // namespace vantor

#endif
