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
#include "plot/timeline.h"
#include "plot/velocity_map_builder.h"
#include "recording/file_replacement.h"
#include "recording/number_text.h"
#include "recording/recorded_captures.h"
#include "recording/stream_facts.h"
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

/** The look of warnings. */
constexpr const char *warning_look = "textcolor rgb '#c02020'";

/** The commands that end a page. */
constexpr const char *end = R"(unset border
unset tics
unset title
unset xlabel
unset ylabel
unset y2label
unset colorbox
set xrange [0:1]
set yrange [0:1]
plot NaN with lines
unset multiplot
)";

/** The commands that write the texts above a row. */
std::string texts(const panel_row &place, const std::vector<std::string> &warnings)
{
    const auto title = item_title(place.item) + "  ·  " + describe_settings(place.item, place.analysis);
    return place.sheet.row_text(place.row, 0, title, "font ',11'") +
           place.sheet.row_text(place.row, 1, describe_echo(place.item, place.analysis), "") +
           place.sheet.row_text(place.row, 2, joined(warnings), warning_look);
}

/** Draws the pages of a recording, one after the other. */
class page_drawer
{
public:
    page_drawer(recording_reader &recording, const drawing &what)
        : recording_(recording), what_(what), facts_(facts_of(recording)), warnings_(describe_gaps(facts_))
    {
    }

    /** Draws the items from a number on. */
    file_text draw(size_t first)
    {
        const auto &items = recording_.items();
        const size_t count = std::min(items_per_page, items.size() - first);
        const auto page_end = items.begin() + static_cast<ptrdiff_t>(first + count);
        const bool has_map = std::any_of(items.begin() + static_cast<ptrdiff_t>(first), page_end,
                                         [](const auto &item) { return has_velocity_map(item.layout); });
        const page sheet(count, has_map ? 5 : 4);
        auto commands = begin(sheet);
        std::string labels;
        time_figures times;
        for (size_t row = 0; row < count; ++row)
        {
            const auto &item = items[first + row];
            const auto analysis = analyse_item(recording_, first + row, what_.distance, what_.stop);
            const panel_row place{.sheet = sheet,
                                  .row = row,
                                  .item = item,
                                  .analysis = analysis,
                                  .base = (scratch_ / item.name).string(),
                                  .window = window_for(analysis)};
            times = row == 0 ? analysis.figures.times : times;
            write_panel_files(place.base, place.item, place.analysis);
            commands += draw_panels(place) + (has_map ? draw_velocity_map(place) : std::string());
            labels += texts(place, warn_of(item, analysis));
        }
        return {.path = path_of(first / items_per_page),
                .text = render(commands + captions(sheet, first, times) + labels + end)};
    }

    /** Warnings about the items drawn so far. */
    [[nodiscard]] const std::vector<std::string> &warnings() const noexcept
    {
        return warnings_;
    }

private:
    /** What is known about the frames of a recording. */
    static stream_facts facts_of(const recording_reader &recording)
    {
        const auto gaps = find_gaps(recording);
        auto facts = recording_facts(recording.session(), recording.frames(), gaps.missing, gaps.captures);
        facts.unlisted_breaks = read_unlisted_breaks(recording.items());
        return facts;
    }

    /** The warnings about an item; they are also kept. */
    std::vector<std::string> warn_of(const recorded_item &item, const item_analysis &analysis)
    {
        auto lines = describe_flags(facts_, flags_of(item.layout, analysis.figures));
        warnings_.insert(warnings_.end(), lines.begin(), lines.end());
        for (const auto &warning : aliasing_warnings(analysis))
        {
            lines.push_back(warning);
            warnings_.push_back(item_title(item) + ": " + warning + ".");
        }
        return lines;
    }

    /** The part of the shared axis for an item; nothing if there is none, or its times are not known. */
    [[nodiscard]] std::optional<time_window> window_for(const item_analysis &analysis) const
    {
        const auto &times = analysis.figures.times;
        return what_.axis && times.first ? std::optional(window_of(*what_.axis, times)) : std::nullopt;
    }

    /** The path of a page. */
    [[nodiscard]] std::filesystem::path path_of(size_t number) const
    {
        if (number == 0)
        {
            return what_.output;
        }
        auto path = what_.output;
        path.replace_filename(what_.output.stem().string() + what_.page_mark + std::to_string(number + 1) +
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

    /** The commands that write the captions of a page. @param times  of its first item */
    [[nodiscard]] std::string captions(const page &sheet, size_t first, const time_figures &times) const;

    /** Runs gnuplot and returns the picture. */
    [[nodiscard]] std::string render(const std::string &commands);

    /** The file that gnuplot writes. */
    [[nodiscard]] std::filesystem::path picture() const
    {
        return scratch_ / "picture.png";
    }

    recording_reader &recording_;
    const drawing &what_;
    stream_facts facts_; /**< without items */
    scratch_directory scratch_;
    std::vector<std::string> warnings_;
};

std::string page_drawer::captions(const page &sheet, size_t first, const time_figures &times) const
{
    const auto pages = (recording_.items().size() + items_per_page - 1) / items_per_page;
    const auto number = "page " + std::to_string(first / items_per_page + 1) + " of " + std::to_string(pages);
    return "unset label\nunset arrow\n" +
           sheet.caption(0, what_.title + "  ·  " + describe_recording(recording_, times), "font ',12'") +
           (pages > 1 ? sheet.right_caption(number) : std::string()) +
           sheet.caption(1, joined(describe_gaps(facts_)), warning_look);
}

std::string page_drawer::render(const std::string &commands)
{
    using namespace std::string_view_literals;
    constexpr auto last_chunk = "\0\0\0\0IEND\xae\x42\x60\x82"sv;
    write_scratch_file(scratch_ / "script", commands);
    const auto messages = run_gnuplot(scratch_ / "script", scratch_ / "messages", what_.stop);
    if (!messages.empty())
    {
        warnings_.push_back("gnuplot: " + messages);
    }
    // gnuplot does not report when the disk is full.
    std::ifstream file(picture(), std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    if (!content.ends_with(last_chunk) && !messages.empty())
    {
        throw error("gnuplot drew no picture: " + messages);
    }
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
    if (what.complete)
    {
        what.complete();
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
                const auto part = fixed(item.layout.distances_m[place.offset], 3) + " to " +
                                  fixed(item.layout.distances_m[place.offset + place.length - 1], 3) + " m";
                text += text.find(part) != std::string::npos ? "" : (text.empty() ? "" : ", ") + part;
            }
        }
    }
    return text;
}

} // namespace vantor
