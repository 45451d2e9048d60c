/** @file
 * The places of pictures and texts on a page.
 */
#include "plot/page.h"

#include "plot/gnuplot.h"
#include "recording/number_text.h"

namespace vantor
{
namespace
{

constexpr int caption_height = 56;
constexpr int row_height = 432;
constexpr int panel_width = 480;

/** Distances of the borders of a panel from those of its field. */
constexpr int left = 72;
constexpr int right = 76;
constexpr int above = 124; /**< the three texts of the row, the title and the upper scale */
constexpr int below = 56;

/** Distance of texts from the left edge, and between lines. */
constexpr int indent = 20;
constexpr int line_height = 20;

/** A label at a place on the screen; nothing for an empty text. */
std::string label(const std::string &text, const std::string &place, const std::string &look)
{
    return text.empty()
               ? std::string()
               : "set label " + gnuplot_quote(text) + " at screen " + place + " noenhanced " + look + "\n";
}

} // namespace

page::page(size_t rows, size_t columns) : rows_(rows), columns_(columns)
{
}

int page::width() const noexcept
{
    return panel_width * static_cast<int>(columns_);
}

int page::height() const noexcept
{
    return caption_height + row_height * static_cast<int>(rows_);
}

/** A horizontal position as a part of the width. */
std::string page::across(int pixels) const
{
    return fixed(static_cast<double>(pixels) / width(), 6);
}

/** A vertical position, counted from the upper edge, as a part of the height. */
std::string page::up(int pixels) const
{
    return fixed(1.0 - static_cast<double>(pixels) / height(), 6);
}

std::string page::panel(size_t row, size_t column) const
{
    const int x = panel_width * static_cast<int>(column);
    const int y = caption_height + row_height * static_cast<int>(row);
    return "set lmargin at screen " + across(x + left) + "\nset rmargin at screen " +
           across(x + panel_width - right) + "\nset tmargin at screen " + up(y + above) +
           "\nset bmargin at screen " + up(y + row_height - below) + "\n";
}

std::string page::colour_scale(size_t row, size_t column) const
{
    constexpr int gap = 10;
    constexpr int breadth = 12;
    const int x = panel_width * static_cast<int>(column + 1) - right + gap;
    const int y = caption_height + row_height * static_cast<int>(row);
    return "set colorbox user origin screen " + across(x) + ", screen " + up(y + row_height - below) +
           " size screen " + across(breadth) + ", screen " +
           fixed(static_cast<double>(row_height - above - below) / height(), 6) + "\n";
}

std::string page::row_text(size_t row, int line, const std::string &text, const std::string &look) const
{
    const int y = caption_height + row_height * static_cast<int>(row) + line_height * (line + 1);
    return label(text, across(indent) + ", screen " + up(y), look);
}

std::string page::caption(int line, const std::string &text, const std::string &look) const
{
    return label(text, across(indent) + ", screen " + up(caption_height / 2 + line_height * line), look);
}

std::string page::right_caption(const std::string &text) const
{
    return label(text, across(width() - indent) + ", screen " + up(caption_height / 2), "right");
}

} // namespace vantor
