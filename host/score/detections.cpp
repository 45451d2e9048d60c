/** @file
 * Reads the detections of a detector from a CSV file.
 */
#include "score/detections.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>

#include "recording/input_file.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** A column that is read, as an index; all but the last one are required. */
using column = size_t;

constexpr column frame_column = 0;
constexpr column group_column = 1;
constexpr column item_column = 2;
constexpr column distance_column = 3;
constexpr column velocity_column = 4;
constexpr size_t number_of_columns = 5;

constexpr std::array<std::string_view, number_of_columns> names_of_columns = {"frame", "group", "item",
                                                                              "distance_m", "velocity_m_s"};

/** Splits a line into cells. */
std::vector<std::string_view> cells_of(std::string_view line)
{
    std::vector<std::string_view> cells;
    for (size_t comma = line.find(','); comma != std::string_view::npos; comma = line.find(','))
    {
        cells.push_back(line.substr(0, comma));
        line.remove_prefix(comma + 1);
    }
    cells.push_back(line);
    return cells;
}

/** Does the work of read_detections(). */
class detections_reader
{
public:
    detections_reader(const std::filesystem::path &path, const recording_reader &recording)
        : recording_(recording), path_(path), lines_(path)
    {
    }

    /** Reads all lines. */
    std::vector<detection> run()
    {
        std::vector<detection> found;
        find_columns();
        while (const auto line = next_line())
        {
            if (!line->empty())
            {
                found.push_back(decode(cells_of(*line)));
            }
        }
        if (lines_.file().size() > lines_.position())
        {
            fail("it has no line end: the file seems to be cut off; write it again, with a line feed after "
                 "each line.");
        }
        const auto place = [](const detection &each) { return std::tuple(each.frame, each.item); };
        std::ranges::stable_sort(found, {}, place);
        return found;
    }

private:
    /** Throws what is wrong with the current line. */
    [[noreturn]] void fail(const std::string &reason) const
    {
        throw detections_error(path_.string() + ": line " + std::to_string(number_) + ": " + reason);
    }

    /** Reads a line, without its end. */
    std::optional<std::string_view> next_line()
    {
        ++number_;
        auto line = lines_.next();
        if (line && line->ends_with('\r'))
        {
            line->remove_suffix(1);
        }
        return line;
    }

    /** Reads the names of the columns. */
    void find_columns()
    {
        constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";
        auto line = next_line().value_or("");
        line.remove_prefix(line.starts_with(byte_order_mark) ? byte_order_mark.size() : 0);
        const auto cells = cells_of(line);
        count_ = cells.size();
        for (size_t i = 0; i < places_.size(); ++i)
        {
            const auto found = std::ranges::find(cells, names_of_columns.at(i));
            places_.at(i) = static_cast<size_t>(found - cells.begin());
            if (found == cells.end() && i != velocity_column)
            {
                fail("there is no column \"" + std::string(names_of_columns.at(i)) +
                     "\"; begin the file with the line frame,group,item,distance_m or "
                     "frame,group,item,distance_m,velocity_m_s.");
            }
        }
    }

    /** Whether the file has a column. */
    [[nodiscard]] bool has(column which) const
    {
        return places_.at(which) < count_;
    }

    /** Reads a cell as a number. */
    template <typename number_t>
    number_t number_in(const std::vector<std::string_view> &cells, column which, const char *kind) const
    {
        const auto cell = cells[places_.at(which)];
        number_t value{};
        const auto [stop, failure] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
        if (failure != std::errc() || stop != cell.data() + cell.size())
        {
            fail(std::string(names_of_columns.at(which)) + " is \"" + std::string(cell) + "\"; use " + kind +
                 ", without spaces and quotes.");
        }
        return value;
    }

    /** Reads a cell as a finite number. */
    double measure_in(const std::vector<std::string_view> &cells, column which) const
    {
        const double value = number_in<double>(cells, which, "a number");
        if (!std::isfinite(value))
        {
            fail(std::string(names_of_columns.at(which)) + " is not finite; leave out this line.");
        }
        return value;
    }

    /** Finds the item at a position in the configuration. */
    size_t item_at(uint64_t group, uint64_t item) const
    {
        const auto &items = recording_.items();
        const auto found = std::ranges::find_if(items, [&](const recorded_item &each) {
            return each.layout.group + 1 == group && each.layout.index + 1 == item;
        });
        if (found == items.end())
        {
            fail("the recording has no item " + std::to_string(item) + " in group " + std::to_string(group) +
                 "; both count from 1, as in the names of its files.");
        }
        return static_cast<size_t>(found - items.begin());
    }

    /** Decodes the cells of a line. */
    detection decode(const std::vector<std::string_view> &cells) const
    {
        if (cells.size() != count_)
        {
            fail("it has " + std::to_string(cells.size()) + " cells, but line 1 has " +
                 std::to_string(count_) + "; write a value for each column, without quotes.");
        }
        constexpr const char *whole = "a whole number";
        detection found{.frame = number_in<uint64_t>(cells, frame_column, whole),
                        .item = item_at(number_in<uint64_t>(cells, group_column, whole),
                                        number_in<uint64_t>(cells, item_column, whole)),
                        .distance_m = measure_in(cells, distance_column),
                        .velocity_m_s = {}};
        if (found.frame >= recording_.frames())
        {
            fail("frame is " + std::to_string(found.frame) + ", but the recording has the frames 0 to " +
                 std::to_string(recording_.frames() - 1) + ".");
        }
        if (has(velocity_column) && !cells[places_[velocity_column]].empty())
        {
            found.velocity_m_s = measure_in(cells, velocity_column);
        }
        return found;
    }

    const recording_reader &recording_;
    const std::filesystem::path &path_;
    line_reader lines_;
    std::array<size_t, number_of_columns> places_{}; /**< of the columns in a line */
    size_t count_ = 0;                               /**< cells in a line */
    uint64_t number_ = 0;                            /**< of the current line */
};

} // namespace

std::vector<detection> read_detections(const std::filesystem::path &path, const recording_reader &recording)
try
{
    return detections_reader(path, recording).run();
}
catch (const bad_recording &failure)
{
    throw detections_error(failure.what());
}

} // namespace vantor
