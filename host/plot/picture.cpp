/** @file
 * Draws a recording.
 */
#include "plot/picture.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

#include "plot/caption.h"
#include "plot/gnuplot.h"
#include "plot/item_analysis.h"
#include "plot/panel_files.h"
#include "plot/panels.h"
#include "plot/scratch_directory.h"
#include "plot/sensor_scale.h"
#include "recording/output_file.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Maximum number of items on a page. */
constexpr size_t items_per_page = 6;

/** The style of all panels. */
constexpr const char *style = R"(set encoding utf8
set border 11 lc rgb '#606060'
set tics nomirror textcolor rgb '#303030'
set grid x y lc rgb '#d8d8d8' lw 0.5
set key off
set title font ',10'
set palette defined (0 '#440154', 1 '#414487', 2 '#2a788e', 3 '#22a884', 4 '#7ad151', 5 '#fde725')
)";

/** Draws the pages of a recording, one after the other. */
class page_drawer
{
public:
    page_drawer(recording_reader &recording, const drawing &what) : recording_(recording), what_(what)
    {
    }

    /** Draws the items from a number on. */
    file_text draw(size_t first)
    {
        const auto &items = recording_.items();
        const size_t count = std::min(items_per_page, items.size() - first);
        std::vector<item_analysis> analyses;
        for (size_t i = 0; i < count; ++i)
        {
            analyses.push_back(analyse(first + i));
        }
        const bool has_map = std::any_of(analyses.begin(), analyses.end(), [](const auto &analysis) {
            return !analysis.velocities.velocities.empty();
        });
        const page sheet(count, has_map ? 5 : 4);
        auto commands = begin(sheet);
        for (size_t row = 0; row < count; ++row)
        {
            const panel_row place{.sheet = sheet,
                                  .row = row,
                                  .item = items[first + row],
                                  .analysis = analyses[row],
                                  .base = (scratch_ / items[first + row].name).string()};
            write_panel_files(place.base, place.item, place.analysis);
            commands += draw_panels(place) + (has_map ? draw_velocity_map(place) : std::string());
        }
        return {.path = path_of(first / items_per_page),
                .text = render(commands + texts(sheet, first, analyses))};
    }

    /** Warnings about the items drawn so far. */
    [[nodiscard]] const std::vector<std::string> &warnings() const noexcept
    {
        return warnings_;
    }

private:
    /** Computes the figures of an item; notes warnings. */
    item_analysis analyse(size_t index)
    {
        auto analysis = analyse_item(recording_, index, what_.distance);
        if (const auto warning = aliasing_warning(analysis); !warning.empty())
        {
            warnings_.push_back(item_title(recording_.items()[index]) + ": " + warning + ".");
        }
        return analysis;
    }

    /** The path of a page. */
    [[nodiscard]] std::filesystem::path path_of(size_t number) const
    {
        if (number == 0)
        {
            return what_.output;
        }
        auto path = what_.output;
        path.replace_filename(what_.output.stem().string() + "-" + std::to_string(number + 1) +
                              what_.output.extension().string());
        return path;
    }

    /** The commands that begin a page. */
    [[nodiscard]] std::string begin(const page &sheet) const
    {
        return "set terminal pngcairo size " + std::to_string(sheet.width()) + "," +
               std::to_string(sheet.height()) + " font 'Sans,10' background rgb 'white'\nset output " +
               gnuplot_quote(picture().string()) + "\n" + style + "set multiplot\n";
    }

    /** The commands that write the captions of a page. */
    [[nodiscard]] std::string texts(const page &sheet, size_t first,
                                    const std::vector<item_analysis> &analyses) const;

    /** Runs gnuplot and returns the picture. */
    [[nodiscard]] std::string render(const std::string &commands) const;

    /** The file that gnuplot writes. */
    [[nodiscard]] std::filesystem::path picture() const
    {
        return scratch_ / "picture.png";
    }

    recording_reader &recording_;
    const drawing &what_;
    scratch_directory scratch_;
    std::vector<std::string> warnings_;
};

std::string page_drawer::texts(const page &sheet, size_t first,
                               const std::vector<item_analysis> &analyses) const
{
    const auto &items = recording_.items();
    const auto pages = (items.size() + items_per_page - 1) / items_per_page;
    const auto number = "page " + std::to_string(first / items_per_page + 1) + " of " + std::to_string(pages);
    std::string text =
        "unset label\nunset arrow\n" +
        sheet.caption(1, what_.title + "  ·  " + describe_recording(recording_), "font ',12'") +
        (pages > 1 ? sheet.right_caption(2, number) : std::string());
    size_t label = 3;
    for (size_t row = 0; row < analyses.size(); ++row)
    {
        const auto &item = items[first + row];
        const auto &analysis = analyses[row];
        const auto warning = aliasing_warning(analysis);
        text += sheet.row_text(label++, row, 0,
                               item_title(item) + "  ·  " + describe_settings(item, analysis), "font ',11'");
        text += sheet.row_text(label++, row, 1,
                               describe_echo(item, analysis, recording_.frames()) +
                                   (warning.empty() ? "" : "  ·  " + warning),
                               warning.empty() ? "" : "textcolor rgb '#c02020'");
    }
    return text + "unset border\nunset tics\nunset title\nunset xlabel\nunset ylabel\nunset y2label\n"
                  "unset colorbox\nset xrange [0:1]\nset yrange [0:1]\n"
                  "plot NaN with lines\nunset multiplot\n";
}

std::string page_drawer::render(const std::string &commands) const
{
    using namespace std::string_view_literals;
    constexpr auto last_chunk = "\0\0\0\0IEND\xae\x42\x60\x82"sv;
    write_scratch_file(scratch_ / "script", commands);
    run_gnuplot(scratch_ / "script", what_.stop);
    // gnuplot does not report when the disk is full.
    std::ifstream file(picture(), std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    require_written(content.ends_with(last_chunk));
    return content;
}

} // namespace

drawn_pictures draw_recording(recording_reader &recording, const drawing &what)
{
    if (recording.frames() == 0)
    {
        throw bad_recording("The recording has no complete frame, so there is nothing to draw.");
    }
    page_drawer drawer(recording, what);
    std::vector<file_text> files;
    drawn_pictures result;
    for (size_t first = 0; first < recording.items().size(); first += items_per_page)
    {
        files.push_back(drawer.draw(first));
        result.pages.push_back(files.back().path);
    }
    replace_files(files);
    result.warnings = drawer.warnings();
    return result;
}

std::string covered_distances(const recording_reader &recording)
{
    std::string text;
    for (const auto &item : recording.items())
    {
        for (const auto &place : item.layout.subsweeps)
        {
            if (place.length > 0)
            {
                const auto part = decimal(item.layout.distances_m[place.offset], 3) + " to " +
                                  decimal(item.layout.distances_m[place.offset + place.length - 1], 3) + " m";
                text += text.find(part) != std::string::npos ? "" : (text.empty() ? "" : ", ") + part;
            }
        }
    }
    return text;
}

} // namespace vantor
