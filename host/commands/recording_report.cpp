/** @file
 * Reports what has been recorded.
 */
#include "commands/recording_report.h"

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

#include "commands/common_options.h"
#include "commands/text_table.h"
#include "configuration/optional_members.h"
#include "plot/echo_search.h"
#include "recording/number_text.h"
#include "recording/printable.h"
#include "recording/sigmf.h"
#include "recording/stream_facts.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** The strongest echo of an item. */
found_echo strongest_echo_of(const finished_recording &recorded, size_t index)
{
    const auto &layout = recorded.source.metadata().items[index];
    const recorded_item item{
        .name = item_name(layout), .layout = layout, .configuration = recorded.items[index], .document = {}};
    return find_strongest_echo(item, recorded.recorder.statistics()[index]);
}

/** The frames that were due before the end; 0 if the stream was to end before them, or is faster than the
 * clock. */
uint64_t due_at_end(const finished_recording &recorded)
{
    constexpr double most_speed = 2.0;
    const bool is_faster = recorded.stream.measured_rate() > most_speed * recorded.source.nominal_rate();
    return recorded.frames_reached || is_faster ? 0 : recorded.source.due_at_end();
}

/** What is known about the stream. */
stream_facts facts_of(const finished_recording &recorded)
{
    stream_facts facts{.frames = recorded.tally.frames(),
                       .missing = recorded.tally.missing(),
                       .damaged = recorded.source.damaged(),
                       .nominal_rate = recorded.source.nominal_rate(),
                       .refused_rate = recorded.source.refused_rate(),
                       .measured_rate = recorded.source.has_clock() ? 0.0 : recorded.stream.measured_rate(),
                       .has_clock = recorded.source.has_clock(),
                       .lost = recorded.source.lost(),
                       .silence = recorded.stream.silence(),
                       .due_at_end = due_at_end(recorded),
                       .truth_missing = recorded.source.truth_missing(),
                       .truth_fault = recorded.source.truth_fault(),
                       .end_known = recorded.source.end_known() || !recorded.stream.interrupted(),
                       .breaks = recorded.tally.breaks(),
                       .items = {}};
    const auto &layouts = recorded.source.metadata().items;
    for (size_t i = 0; i < recorded.tally.items().size(); ++i)
    {
        facts.items.push_back({.group = layouts[i].group + 1,
                               .item = layouts[i].index + 1,
                               .counts = recorded.tally.items()[i]});
    }
    return facts;
}

/** A strongest echo, with what should be known about it. */
std::string echo_with_note(const found_echo &strongest)
{
    const auto distance = strongest.distance ? fixed(*strongest.distance, 3) + " m" : std::string("-");
    return strongest.note.empty() ? distance : distance + " (" + strongest.note + ")";
}

/** Prints a table with one line per item. */
void print_items(std::ostream &out, const finished_recording &recorded)
{
    text_table table({"group", "item", "sensor", "sub-sweeps", "samples/frame", "frames", "mean level (LSB)",
                      "strongest echo"});
    for (size_t i = 0; i < recorded.items.size(); ++i)
    {
        const auto &layout = recorded.source.metadata().items[i];
        const auto strongest = strongest_echo_of(recorded, i);
        const auto level = recorded.recorder.statistics()[i].mean_level();
        table.add({std::to_string(layout.group + 1), std::to_string(layout.index + 1),
                   std::to_string(recorded.items[i].sensor_id), std::to_string(layout.subsweeps.size()),
                   std::to_string(layout.frame_length), std::to_string(recorded.writer.frames()),
                   level ? fixed(*level, 1) : "-", echo_with_note(strongest)});
    }
    table.print(out);
}

/** Seconds from the first to the last frame: by the clock of the server, or of this host if that has none. */
double seconds(const finished_recording &recorded)
{
    return recorded.source.has_clock() ? recorded.writer.seconds() : recorded.stream.seconds();
}

/** Frames per second by the same clock; 0 if unknown. */
double measured_rate(const finished_recording &recorded)
{
    return recorded.source.has_clock()
               ? measured_frame_rate(recorded.writer.frames(), recorded.writer.seconds())
               : recorded.stream.measured_rate();
}

/** What is known of the times in UTC, as a line; empty if the server has no clock and sent none. */
std::string describe_times(const finished_recording &recorded)
{
    constexpr double milliseconds = 1e3;
    const auto &tally = recorded.tally;
    if (tally.undated() == tally.frames())
    {
        const bool expected = recorded.source.has_clock() && tally.frames() > 0;
        return expected ? "times in UTC: none is known\n" : "";
    }
    const auto bound = std::chrono::duration<double>(tally.largest_bound()).count();
    auto text = "times in UTC: known within " + three_digits(bound * milliseconds) + " ms";
    text += tally.undated() > 0 ? ", not known for " + counted(tally.undated(), "frame") : "";
    return text + "\n";
}

/** Warns of a clock that contradicted itself; empty if it did not. */
std::string warn_of_clock(const finished_recording &recorded)
{
    const auto count = recorded.source.clock_contradictions();
    return count == 0 ? ""
                      : "WARNING: the clock of the board contradicted itself " + counted(count, "time") +
                            ": it was set, or is more than 200 ppm wrong; times in UTC may be wrong.";
}

/** All warnings. */
std::vector<std::string> warnings_of(const finished_recording &recorded)
{
    auto lines = describe_warnings(facts_of(recorded));
    if (const auto clock = warn_of_clock(recorded); !clock.empty())
    {
        lines.push_back(clock);
    }
    return lines;
}

/** The times in UTC as JSON. */
ordered_json times_json(const finished_recording &recorded)
{
    const auto &tally = recorded.tally;
    const bool known = tally.undated() < tally.frames();
    const auto bound = std::chrono::duration<double>(tally.largest_bound()).count();
    return {{"largest_bound_s", known ? ordered_json(bound) : ordered_json()},
            {"frames_unknown", tally.undated()},
            {"clock_contradictions", recorded.source.clock_contradictions()}};
}

/** Prints the totals and the warnings. */
void print_summary(std::ostream &out, const finished_recording &recorded)
{
    const auto frames = static_cast<double>(recorded.writer.frames());
    const auto bytes = static_cast<double>(recorded.writer.data_length());
    const double rate = measured_rate(recorded);
    out << recorded.writer.frames() << (recorded.writer.frames() == 1 ? " frame, " : " frames, ")
        << format_bytes(bytes);
    if (rate > 0.0)
    {
        out << " in " << fixed(seconds(recorded), 2) << " s: " << rate_text(rate) << " frames/s, "
            << format_bytes(bytes / frames * rate) << "/s";
    }
    out << "\n";
    out << describe_times(recorded);
    for (const auto &line : warnings_of(recorded))
    {
        out << line << "\n";
    }
    if (recorded.simulated)
    {
        out << "sensors: simulated\n";
    }
    out << "recording: " << printable(recorded.writer.directory().string()) << "\n";
}

/** Describes an item as JSON. */
ordered_json item_json(const finished_recording &recorded, size_t index)
{
    const auto &layout = recorded.source.metadata().items[index];
    const auto strongest = strongest_echo_of(recorded, index);
    const auto level = recorded.recorder.statistics()[index].mean_level();
    ordered_json item = {
        {"group", layout.group + 1},
        {"item", layout.index + 1},
        {"sensor_id", recorded.items[index].sensor_id},
        {"subsweeps", layout.subsweeps.size()},
        {"samples_per_frame", layout.frame_length},
        {"mean_level", level ? ordered_json(*level) : ordered_json()},
        {"strongest_echo_m", strongest.distance ? ordered_json(*strongest.distance) : ordered_json()},
        {"strongest_echo_note", strongest.note.empty() ? ordered_json() : ordered_json(strongest.note)}};
    if (index < recorded.tally.items().size())
    {
        const auto &counts = recorded.tally.items()[index];
        item["frames_saturated"] = counts.saturated;
        item["frames_invalid"] = counts.invalid;
        item["frames_delayed"] = counts.delayed;
        item["frames_with_calibration_needed"] = counts.calibration_needed;
    }
    return item;
}

} // namespace

ordered_json report_json(const finished_recording &recorded)
{
    auto items = ordered_json::array();
    for (size_t i = 0; i < recorded.items.size(); ++i)
    {
        items.push_back(item_json(recorded, i));
    }
    auto breaks = ordered_json::array();
    for (const auto &part : recorded.tally.breaks())
    {
        breaks.push_back({{"reason", part.reason}, {"seconds", part.gap}});
    }
    return {{"recording", recorded.writer.directory().string()},
            {"simulated", recorded.simulated},
            {"frames", recorded.writer.frames()},
            {"bytes", recorded.writer.data_length()},
            {"seconds", seconds(recorded)},
            {"interrupted", recorded.stream.interrupted()},
            {"frames_missing", recorded.tally.missing()},
            {"frame_rate", or_null(recorded.source.nominal_rate())},
            {"measured_frame_rate", or_null(measured_rate(recorded))},
            {"messages_damaged", recorded.source.damaged()},
            {"truth", !recorded.source.scene().is_null()},
            {"truth_missing", recorded.source.truth_missing()},
            {"breaks", std::move(breaks)},
            {"items", std::move(items)},
            {"times", times_json(recorded)},
            {"warnings", warnings_of(recorded)}};
}

void print_report(const finished_recording &recorded, std::ostream &out, bool json)
{
    if (json)
    {
        print_json(out, report_json(recorded));
        return;
    }
    print_items(out, recorded);
    print_summary(out, recorded);
}

} // namespace vantor
