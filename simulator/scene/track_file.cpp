/** @file
 * Reads the track of a target from a file with comma-separated values.
 */
#include "scene/track_file.h"

#include <charconv>
#include <cstring>

#include "common/number_text.h"

namespace
{

using namespace zet_simulator;

/** A kind of file: its first line, and what is in its columns. */
struct track_format
{
    const char *header;
    const char *columns[4];
    uint32_t column_count;
    bool in_space;
};

constexpr track_format track_formats[] = {
    {"time_s,distance_m", {"time_s", "distance_m"}, 2, false},
    {"time_s,x_m,y_m", {"time_s", "x_m", "y_m"}, 3, true},
    {"time_s,x_m,y_m,z_m", {"time_s", "x_m", "y_m", "z_m"}, 4, true},
};

/** Removes spaces, tabulators and a carriage return around a text. */
std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view space = " \t\r";
    const size_t first = text.find_first_not_of(space);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(space) + 1U - first);
}

/** Takes a text up to a separator, and removes both from what is left. */
std::string_view take_until(std::string_view &left, char separator)
{
    const size_t end = left.find(separator);
    const std::string_view taken = left.substr(0, end);
    left = end == std::string_view::npos ? std::string_view() : left.substr(end + 1U);
    return trimmed(taken);
}

/** Reads a file line by line. */
class track_reader
{
public:
    track_reader(scene_reading &reading, const scene_place &target, const char *name)
        : reading_(reading), target_(target), name_(name)
    {
    }

    /** Reads all lines. */
    bool read(std::string_view text, bool has_place)
    {
        constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
        text.remove_prefix(text.starts_with(byte_order_mark) ? byte_order_mark.size() : 0U);
        if (!read_header(take_until(text, '\n'), has_place))
        {
            return false;
        }
        while (!text.empty())
        {
            ++line_;
            const std::string_view line = take_until(text, '\n');
            if (!line.empty() && !read_row(line))
            {
                return false;
            }
        }
        return count_ > 0U || refuse_at(reading_.report, target_, track_file_key,
                                        " is %s, which has no keyframes, but must have at least one", name_);
    }

    /** What was read. */
    [[nodiscard]] track_file track() const
    {
        return {count_, format_->in_space};
    }

private:
    /** Reports what a line has instead of what it must have. */
    bool refuse_line(const char *found, const char *as, const char *expected)
    {
        return refuse_at(reading_.report, target_, track_file_key,
                         " is %s, of which line %lu has %s%s, but must have %s", name_,
                         static_cast<unsigned long>(line_), found, as, expected);
    }

    bool read_header(std::string_view line, bool has_place)
    {
        for (const track_format &format : track_formats)
        {
            format_ = line == format.header ? &format : format_;
        }
        if (format_ == nullptr)
        {
            return refuse_line(text_quoted(line).text, "",
                               "time_s,distance_m or time_s,x_m,y_m or time_s,x_m,y_m,z_m");
        }
        return format_->in_space || !has_place ||
               refuse_line(format_->header, "",
                           "time_s,x_m,y_m or time_s,x_m,y_m,z_m, because the target has a place");
    }

    bool read_row(std::string_view row)
    {
        const uint16_t index = reading_.scene.keyframe_count;
        if (index == ZET_SIMULATOR_MAX_KEYFRAMES)
        {
            char expected[64];
            refuse({expected, sizeof(expected)}, "at most %u in all targets together",
                   static_cast<unsigned>(ZET_SIMULATOR_MAX_KEYFRAMES));
            return refuse_line("a keyframe too many", "", expected);
        }
        ++reading_.scene.keyframe_count;
        auto *record = scene_entry(reading_.scene, scene_keyframes, index);
        for (uint32_t column = 0; column < format_->column_count; ++column)
        {
            const bool is_last = column + 1U == format_->column_count;
            const bool has_next = row.find(',') != std::string_view::npos;
            if (has_next == is_last)
            {
                return refuse_line(is_last ? "more values" : "fewer values", "", format_->header);
            }
            if (!read_value(take_until(row, ','), format_->columns[column], record))
            {
                return false;
            }
        }
        ++count_;
        return is_later(index);
    }

    /** Reads one value into a keyframe. */
    bool read_value(std::string_view text, const char *column, unsigned char *record)
    {
        const scene_field *field = scene_keyframes.fields;
        while (std::strcmp(field->name, column) != 0)
        {
            ++field;
        }
        double value = 0.0;
        const char *end = text.data() + text.size();
        const auto [stop, failure] = std::from_chars(text.data(), end, value);
        const auto stored = static_cast<float>(value);
        if (failure == std::errc{} && stop == end && stored >= field->lowest && stored <= field->highest)
        {
            scene_field_set(record, *field, value);
            return true;
        }
        char expected[64];
        refuse({expected, sizeof(expected)}, "a number from %s to %s",
               text_of(static_cast<double>(field->lowest)).text,
               text_of(static_cast<double>(field->highest)).text);
        char as[32];
        refuse({as, sizeof(as)}, " as %s", column);
        return refuse_line(text_quoted(text).text, as, expected);
    }

    /** Checks that the time of a keyframe is after that of the one before. */
    bool is_later(uint32_t index)
    {
        const zet_simulator_keyframe_t &now = reading_.scene.keyframes[index];
        if (count_ == 1U || now.time_s > reading_.scene.keyframes[index - 1U].time_s)
        {
            return true;
        }
        const auto before = static_cast<double>(reading_.scene.keyframes[index - 1U].time_s);
        char expected[64];
        refuse({expected, sizeof(expected)}, "more than that of the keyframe before, %s",
               text_of(before).text);
        return refuse_line(text_beside(static_cast<double>(now.time_s), {before}).text, " as time_s",
                           expected);
    }

    scene_reading &reading_;
    const scene_place &target_;
    const char *name_;
    const track_format *format_ = nullptr;
    uint32_t line_ = 1;
    uint16_t count_ = 0;
};

} // namespace

namespace zet_simulator
{

bool read_track_file(scene_reading &reading, const scene_place &target, const cJSON *name, bool has_place,
                     track_file &track)
{
    if (!cJSON_IsString(name))
    {
        return refuse_type(reading, target, track_file_key, name, "the name of a file");
    }
    const zet_simulator_scene_source_t &source = reading.source;
    if (source.read_file == nullptr)
    {
        return refuse_type(reading, target, track_file_key, name, "absent, because no files are read here");
    }
    char error[512] = "";
    const zet_simulator_file_t file =
        source.read_file(source.context, name->valuestring, error, sizeof(error));
    if (file.text == nullptr)
    {
        return refuse_at(reading.report, target, track_file_key, " is %s, but %s", text_of_item(name).text,
                         error);
    }
    const text_excerpt quoted = text_of_item(name);
    track_reader reader(reading, target, quoted.text);
    if (!reader.read({file.text, file.size}, has_place))
    {
        return false;
    }
    track = reader.track();
    return true;
}

} // namespace zet_simulator
