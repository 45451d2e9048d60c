/** @file
 * Reads the detections of a detector from a CSV file.
 */
#include "score/detections.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

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

/** The frames and items that fit into a detection: more than any recording has. */
constexpr uint64_t frame_mask = (uint64_t{1} << 40U) - 1;
constexpr uint64_t item_mask = (uint64_t{1} << 24U) - 1;

/** Comparisons of a sort between two calls of the function that stops it. */
constexpr uint64_t comparisons_per_stop = 65536;

/** Removes the blanks around a text. */
std::string_view trimmed(std::string_view text)
{
    constexpr const char *blanks = " \t";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

/** Quotes a text from the file for a message, shortened; what is not printable is escaped. */
std::string quoted(std::string_view text)
{
    constexpr size_t longest = 80;
    const std::string begin(text.substr(0, longest));
    const auto shown = nlohmann::json(begin).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return shown + (text.size() > longest ? "…" : "");
}

/** Does the work of read_detections(). */
class detections_reader
{
public:
    detections_reader(const std::filesystem::path &path, const recording_reader &recording,
                      const std::function<void()> &stop)
        : recording_(recording), path_(path), stop_(stop), lines_(path)
    {
    }

    /** Reads all lines. */
    std::deque<detection> run(uint64_t most)
    {
        find_columns();
        while (const auto line = next_line())
        {
            stop_if_asked();
            if (trimmed(*line).empty())
            {
                continue;
            }
            if (found_.size() == most)
            {
                fail("the file has more than " + std::to_string(most) +
                     " detections; raise the threshold of the detector, or score a shorter recording.");
            }
            split(*line);
            found_.push_back(decode());
        }
        if (lines_.file().size() > lines_.position())
        {
            fail("it has no line end: the file seems to be cut off; write it again, with a line feed after "
                 "each line.");
        }
        sort();
        return std::move(found_);
    }

private:
    /** Calls the function that may end the work by an exception. */
    void stop_if_asked() const
    {
        if (stop_)
        {
            stop_();
        }
    }

    /** Puts the detections into the order of frames and items; detectors usually write them so. */
    void sort()
    {
        uint64_t comparisons = 0;
        const auto is_before = [&](const detection &left, const detection &right) {
            if (++comparisons % comparisons_per_stop == 0)
            {
                stop_if_asked();
            }
            const auto place = [](const detection &each) {
                return std::pair<uint64_t, uint64_t>(each.frame, each.item);
            };
            return place(left) < place(right);
        };
        if (!std::ranges::is_sorted(found_, is_before))
        {
            std::ranges::sort(found_, is_before);
        }
    }

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

    /** Splits a line into cells, without the blanks around them. */
    void split(std::string_view line)
    {
        cells_.clear();
        for (size_t comma = line.find(','); comma != std::string_view::npos; comma = line.find(','))
        {
            cells_.push_back(trimmed(line.substr(0, comma)));
            line.remove_prefix(comma + 1);
        }
        cells_.push_back(trimmed(line));
    }

    /** Reads the names of the columns. */
    void find_columns()
    {
        constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";
        auto line = next_line().value_or("");
        line.remove_prefix(line.starts_with(byte_order_mark) ? byte_order_mark.size() : 0);
        split(line);
        count_ = cells_.size();
        for (size_t i = 0; i < places_.size(); ++i)
        {
            const std::string name(names_of_columns.at(i));
            const auto found = std::ranges::find(cells_, name);
            places_.at(i) = static_cast<size_t>(found - cells_.begin());
            if (found == cells_.end() && i != velocity_column)
            {
                fail(
                    "the column \"" + name + "\" is missing; the header is " + quoted(line) +
                    ", but must be frame,group,item,distance_m or frame,group,item,distance_m,velocity_m_s.");
            }
            if (std::ranges::count(cells_, name) > 1)
            {
                fail("the column \"" + name + "\" is there more than once; the header is " + quoted(line) +
                     ".");
            }
        }
    }

    /** Whether the file has a column. */
    [[nodiscard]] bool has(column which) const
    {
        return places_.at(which) < count_;
    }

    /** Reads a cell as a number. */
    template <typename number_t> number_t number_in(column which, const char *kind) const
    {
        const auto cell = cells_[places_.at(which)];
        number_t value{};
        const auto [stop, failure] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
        if (failure != std::errc() || stop != cell.data() + cell.size())
        {
            fail(std::string(names_of_columns.at(which)) + " is " + quoted(cell) + "; use " + kind +
                 ", without quotes.");
        }
        return value;
    }

    /** Reads a cell as a finite number. */
    double measure_in(column which) const
    {
        const double value = number_in<double>(which, "a number");
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
    detection decode() const
    {
        if (cells_.size() != count_)
        {
            fail("it has " + std::to_string(cells_.size()) + " cells, but line 1 has " +
                 std::to_string(count_) + "; write a value for each column, without quotes.");
        }
        constexpr const char *whole = "a whole number";
        const auto frame = number_in<uint64_t>(frame_column, whole);
        if (frame >= recording_.frames())
        {
            fail("frame is " + std::to_string(frame) + ", but the recording has the frames 0 to " +
                 std::to_string(recording_.frames() - 1) + ".");
        }
        detection found;
        const auto item =
            item_at(number_in<uint64_t>(group_column, whole), number_in<uint64_t>(item_column, whole));
        found.frame = frame & frame_mask;
        found.item = item & item_mask;
        found.distance_m = measure_in(distance_column);
        if (has(velocity_column) && !cells_[places_[velocity_column]].empty())
        {
            found.velocity_m_s = measure_in(velocity_column);
        }
        return found;
    }

    const recording_reader &recording_;
    const std::filesystem::path &path_;
    const std::function<void()> &stop_;
    line_reader lines_;
    std::deque<detection> found_;
    std::vector<std::string_view> cells_;            /**< of the current line */
    std::array<size_t, number_of_columns> places_{}; /**< of the columns in a line */
    size_t count_ = 0;                               /**< cells in a line */
    uint64_t number_ = 0;                            /**< of the current line */
};

} // namespace

std::deque<detection> read_detections(const std::filesystem::path &path, const recording_reader &recording,
                                      const std::function<void()> &stop, uint64_t most)
try
{
    if (std::filesystem::exists(path) && !std::filesystem::is_regular_file(path))
    {
        throw detections_error("Cannot read " + path.string() +
                               ": it is not a regular file; write the detections to a file first, because "
                               "pipes and devices cannot be read.");
    }
    return detections_reader(path, recording, stop).run(most);
}
catch (const bad_recording &failure)
{
    throw detections_error(failure.what());
}
catch (const std::bad_alloc &)
{
    throw detections_error(path.string() +
                           " needs more memory than there is; raise the threshold of the detector, or score "
                           "a shorter recording.");
}

} // namespace vantor
