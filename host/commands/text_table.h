/** @file
 * Tables and numbers as text, for people.
 */
#ifndef VANTOR_TEXT_TABLE_H
#define VANTOR_TEXT_TABLE_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace vantor
{

/** A table whose columns are as wide as their widest cell. */
class text_table
{
public:
    /** @param head  the names of the columns, in ASCII */
    explicit text_table(std::vector<std::string> head);

    /** Adds a row with one cell for each column, in ASCII. */
    void add(std::vector<std::string> row);

    /** Writes the table, one line for the head and one for each row. */
    void print(std::ostream &out) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

/** Writes a number with so many digits after the point. */
std::string fixed(double value, int digits);

/** Writes a number of bytes with a unit, such as "1.3 MB" (1000 bytes are a kB). */
std::string format_bytes(double bytes);

} // namespace vantor

#endif
