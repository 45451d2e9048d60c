/** @file
 * `vantor score`.
 */
#include "commands/score.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "commands/common_options.h"
#include "commands/damage.h"
#include "commands/interrupt.h"
#include "commands/text_table.h"
#include "recording/number_text.h"
#include "score/score.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

constexpr const char *score_footer = R"(Examples:
  vantor record config.json --frames 1000 --output garage
      records frames of a private simulated server, and what its sensors should have found
  vantor score garage detections.csv
      compares what a detector has found in these frames
  vantor score garage detections.csv --gate 0.05 --min-snr 13 --json

DETECTIONS has a line "frame,group,item,distance_m" or "frame,group,item,distance_m,velocity_m_s", then a line for
each detection. Other columns are ignored. frame counts from 0, group and item from 1, as in the recording. It must be a
file: pipes are not read.

The targets of a body are one thing, which is to be found once in a frame, at any of its points. A target is to be found
while it has an echo within the measured distances, and is not below --min-snr; a body, while one of its targets is.

In each frame of an item, the closest pair of a detection and a thing is matched first, then the next one, up to the
gate. Detections that are left:
  - of a body: ignored, because a body can have several echoes
  - a second one of a target that is not part of a body: a false alarm
  - of things that need not be found, such as those below --min-snr: ignored
  - of things below --min-speed: false alarms, as if these things were not there
  - all others, also of the direct leakage: false alarms

Frames whose samples are not valid, or whose truth is unknown, are left out.)";

/** The widest gate that can be set: all that a scene can contain. */
constexpr double widest_gate_m = 1000.0;

/** The options of `vantor score`. */
struct score_options
{
    std::filesystem::path recording;
    std::filesystem::path detections;
    std::optional<double> gate_m;
    std::optional<double> least_snr_db;
    std::optional<double> least_speed_m_s;
    bool json = false;
};

/** The score of a recording, and what is needed to print it. */
struct recording_score
{
    const recording_reader &recording;
    const std::vector<item_score> &items;
    const score_options &options;
};

/** A number, or null if it is unknown. */
ordered_json known_or_null(const std::optional<double> &value)
{
    return value ? ordered_json(*value) : ordered_json();
}

/** The ratio of two numbers; nothing if it is unknown. */
std::optional<double> ratio(uint64_t part, uint64_t whole)
{
    return whole == 0 ? std::nullopt : std::optional(static_cast<double>(part) / static_cast<double>(whole));
}

/** Describes how well things were found. */
ordered_json describe_figures(const detection_figures &figures)
{
    return {{"due", figures.due},
            {"detected", figures.detected},
            {"probability_of_detection", known_or_null(figures.probability())},
            {"distance_error_rms_m", known_or_null(figures.distance.rms())},
            {"distance_error_mean_m", known_or_null(figures.distance.mean())},
            {"velocities", figures.velocity.count},
            {"velocity_error_rms_m_s", known_or_null(figures.velocity.rms())},
            {"velocity_error_mean_m_s", known_or_null(figures.velocity.mean())}};
}

/** Describes the false alarms of an item, or of all items. */
void describe_false_alarms(ordered_json &entry, const item_score &score)
{
    entry.update({{"frames", score.frames},
                  {"frames_left_out", score.left_out},
                  {"points", score.points},
                  {"detections", score.detections},
                  {"detections_ignored", score.ignored},
                  {"false_alarms", score.false_alarms},
                  {"false_alarms_per_frame", known_or_null(ratio(score.false_alarms, score.frames))},
                  {"false_alarms_per_point", known_or_null(ratio(score.false_alarms, score.points))}});
}

/** The default gate of an item, which depends on the sub-sweep: the greatest one. */
std::optional<double> widest_gate(const recorded_item &item)
{
    return response_width(item, std::nan(""));
}

/** Describes the score of an item. */
ordered_json describe_score(const recording_score &scored, size_t index)
{
    const auto &item = scored.recording.items()[index];
    const auto &score = scored.items[index];
    const auto gate = scored.options.gate_m ? scored.options.gate_m : widest_gate(item);
    ordered_json entry = {
        {"group", item.layout.group + 1}, {"item", item.layout.index + 1}, {"gate_m", known_or_null(gate)}};
    describe_false_alarms(entry, score);
    entry.update(describe_figures(score.all()));
    auto &targets = entry["targets"] = ordered_json::array();
    for (const auto &[name, figures] : score.things)
    {
        ordered_json about = {{name.is_body ? "body" : "target", name.number}};
        about.update(describe_figures(figures));
        targets.push_back(std::move(about));
    }
    return entry;
}

/** The sum of the scores of all items. */
item_score total(const std::vector<item_score> &items)
{
    item_score sum;
    for (const auto &item : items)
    {
        sum.frames += item.frames;
        sum.left_out += item.left_out;
        sum.points += item.points;
        sum.detections += item.detections;
        sum.ignored += item.ignored;
        sum.false_alarms += item.false_alarms;
        for (const auto &[name, figures] : item.things)
        {
            sum.things[name].add(figures);
        }
    }
    return sum;
}

/** Prints the score as JSON. */
void print_score_json(std::ostream &out, const recording_score &scored)
{
    const auto all = total(scored.items);
    ordered_json about = {{"recording", scored.recording.directory().string()}};
    describe_false_alarms(about, all);
    about.update(describe_figures(all.all()));
    auto &items = about["items"] = ordered_json::array();
    for (size_t i = 0; i < scored.items.size(); ++i)
    {
        items.push_back(describe_score(scored, i));
    }
    print_json(out, about);
}

/** A number in thousandths, with their unit, or "-". */
std::string thousandths(const std::optional<double> &value, const char *unit)
{
    return value ? fixed(*value * 1000.0, 2) + unit : "-";
}

/** A share, or "-". */
std::string share(const std::optional<double> &value)
{
    return value ? fixed(*value, 4) : "-";
}

/** A small share, or "-". */
std::string small_share(const std::optional<double> &value)
{
    return value ? three_digits(*value) : "-";
}

/** The name of a thing in a table. */
std::string text_of(const thing_name &name)
{
    return (name.is_body ? "body " : "") + std::to_string(name.number);
}

/** The cells about how well things were found. */
std::vector<std::string> figure_cells(const detection_figures &figures)
{
    return {std::to_string(figures.due),
            std::to_string(figures.detected),
            share(figures.probability()),
            thousandths(figures.distance.rms(), " mm"),
            thousandths(figures.distance.mean(), " mm"),
            thousandths(figures.velocity.rms(), " mm/s"),
            thousandths(figures.velocity.mean(), " mm/s")};
}

/** Prints a line for each thing of each item. */
void print_things(std::ostream &out, const recording_score &scored)
{
    text_table table({"group", "item", "target", "due", "detected", "probability", "rms error", "mean error",
                      "velocity rms", "velocity mean"});
    const auto add = [&](const recorded_item &item, const std::string &thing,
                         const detection_figures &figures) {
        std::vector<std::string> row = {std::to_string(item.layout.group + 1),
                                        std::to_string(item.layout.index + 1), thing};
        const auto cells = figure_cells(figures);
        row.insert(row.end(), cells.begin(), cells.end());
        table.add(std::move(row));
    };
    for (size_t i = 0; i < scored.items.size(); ++i)
    {
        for (const auto &[name, figures] : scored.items[i].things)
        {
            add(scored.recording.items()[i], text_of(name), figures);
        }
        add(scored.recording.items()[i], "all", scored.items[i].all());
    }
    table.print(out);
}

/** Prints a line for each item about its false alarms. */
void print_false_alarms(std::ostream &out, const recording_score &scored)
{
    text_table table({"group", "item", "gate", "frames", "left out", "detections", "ignored", "false alarms",
                      "per frame", "per point"});
    for (size_t i = 0; i < scored.items.size(); ++i)
    {
        const auto &item = scored.recording.items()[i];
        const auto &score = scored.items[i];
        const auto gate = scored.options.gate_m ? scored.options.gate_m : widest_gate(item);
        table.add({std::to_string(item.layout.group + 1), std::to_string(item.layout.index + 1),
                   gate ? fixed(*gate, 3) + " m" : "-", std::to_string(score.frames),
                   std::to_string(score.left_out), std::to_string(score.detections),
                   std::to_string(score.ignored), std::to_string(score.false_alarms),
                   small_share(ratio(score.false_alarms, score.frames)),
                   small_share(ratio(score.false_alarms, score.points))});
    }
    table.print(out);
}

/** Throws interruption if the user has asked to stop. */
void stop_score_if_interrupted()
{
    if (interrupt_watch::interrupted())
    {
        throw interruption("Interrupted; not all frames were compared.");
    }
}

/** Warns if the numbers of targets may have changed their meaning: a recording has only its first scene. */
void warn_of_other_scenes(const recording_reader &recording, const command_streams &streams)
{
    const auto captures = recording.captures();
    const auto again = std::ranges::find_if(
        captures, [](const capture &each) { return each.begins && each.begins->reason == connected_again; });
    if (again != captures.end())
    {
        streams.err << "vantor: warning: The host connected again before frame " << again->first_frame
                    << ". If the server had another scene from then on, the numbers of targets and bodies "
                       "stand for different things; use the rows \"all\".\n";
    }
}

/** Compares detections with the truth, and prints the score. */
exit_code score(const score_options &options, const command_streams &streams)
{
    const recording_reader recording(options.recording);
    const interrupt_watch watch;
    // First: without a truth, nothing else matters.
    static_cast<void>(recording.open_truth());
    warn_of_damage(recording, streams, stop_score_if_interrupted);
    warn_of_other_scenes(recording, streams);
    const auto detections = read_detections(options.detections, recording, stop_score_if_interrupted);
    const auto items = score_detections(recording, detections,
                                        {.gate_m = options.gate_m,
                                         .least_snr_db = options.least_snr_db,
                                         .least_speed_m_s = options.least_speed_m_s.value_or(0.0)},
                                        stop_score_if_interrupted);
    const recording_score scored{.recording = recording, .items = items, .options = options};
    if (options.json)
    {
        print_score_json(streams.out, scored);
        return exit_code::success;
    }
    print_things(streams.out, scored);
    streams.out << "\n";
    print_false_alarms(streams.out, scored);
    return exit_code::success;
}

} // namespace

command score_command()
{
    auto options = std::make_shared<score_options>();
    return {
        .name = "score",
        .help = "Compare detections with what simulated sensors should have found.",
        .footer = score_footer,
        .options = {recording_argument(options->recording),
                    {.name = "DETECTIONS",
                     .help = "CSV file with the detections",
                     .value = &options->detections,
                     .required = true},
                    {.name = "--gate",
                     .help = "Greatest distance in metres between a detection and its target, at most "
                             "1000; the width of the item's response if not given",
                     .value = number_value{.target = &options->gate_m, .above = 0.0, .most = widest_gate_m},
                     .value_name = "NUMBER"},
                    {.name = "--min-snr",
                     .help = "Signal-to-noise ratio in dB from which on a target has to be found; all "
                             "targets if not given",
                     .value = number_value{.target = &options->least_snr_db},
                     .value_name = "NUMBER"},
                    {.name = "--min-speed",
                     .help = "Speed in m/s below which things are as if they were not there; a body is "
                             "there if one of its targets is fast enough",
                     .value = number_value{.target = &options->least_speed_m_s, .above = 0.0},
                     .value_name = "NUMBER"},
                    json_flag(options->json)},
        .run = [options](const command_streams &streams) { return score(*options, streams); }};
}

} // namespace vantor
