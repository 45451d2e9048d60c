/** @file
 * The places of pictures and texts on a page.
 */
#ifndef VANTOR_PAGE_H
#define VANTOR_PAGE_H

#include <cstddef>
#include <string>

namespace vantor
{

/** A page: a caption, and rows of panels below it. Sizes are in pixels. */
class page
{
public:
    /**
     * @param rows     number of rows
     * @param columns  number of panels in a row
     */
    page(size_t rows, size_t columns);

    /** The width. */
    [[nodiscard]] int width() const noexcept;

    /** The height. */
    [[nodiscard]] int height() const noexcept;

    /** The commands that place the next panel. */
    [[nodiscard]] std::string panel(size_t row, size_t column) const;

    /** The commands that place the colour scale of that panel. */
    [[nodiscard]] std::string colour_scale(size_t row, size_t column) const;

    /**
     * The command for a text above a row.
     *
     * @param line  0 to 2
     * @param look  such as "font ',11'"
     */
    [[nodiscard]] std::string row_text(size_t row, int line, const std::string &text,
                                       const std::string &look) const;

    /** The command for a text in the caption of the page, at the left edge; its line is 0 or 1. */
    [[nodiscard]] std::string caption(int line, const std::string &text, const std::string &look) const;

    /** The command for a text in the caption of the page, at the right edge. */
    [[nodiscard]] std::string right_caption(const std::string &text) const;

private:
    [[nodiscard]] std::string across(int pixels) const;
    [[nodiscard]] std::string up(int pixels) const;

    size_t rows_;
    size_t columns_;
};

} // namespace vantor

#endif
