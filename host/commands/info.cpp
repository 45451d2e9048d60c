/** @file
 * `vantor info`.
 */
#include "commands/info.h"

#include <cmath>
#include <memory>
#include <ostream>
#include <string>

#include "commands/check_progress.h"
#include "commands/common_options.h"
#include "commands/damage.h"
#include "commands/info_boards.h"
#include "commands/info_document.h"
#include "commands/next_command.h"
#include "commands/text_table.h"
#include "recording/number_text.h"
#include "recording/printable.h"
#include "vantor/board_collection.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

constexpr const char *info_footer = R"(Examples:
  vantor info recordings/garage
  vantor info recordings/garage --json

This reads all files and compares sizes, counts and digests. If the recording is damaged, the exit code is 8, and
the output lists the damage and shows what is left. "vantor repair" makes it usable again if it can.

Of a recording of several boards it also shows when each of them measured, on one axis of time.

frames/s is the rate that was configured, "measured" the rate that was reached. 1 LSB is the smallest step of a
sample, whose parts reach from -32768 to 32767.)";

/** Describes the state of a recording for the first line. */
std::string describe_state(const ordered_json &about)
{
    std::string state;
    if (!about["damage"].empty())
    {
        state = ", damaged";
    }
    else if (about["in_progress"].get<bool>())
    {
        state = ", still being recorded";
    }
    else if (!about["complete"].get<bool>())
    {
        state = ", incomplete";
    }
    return about["repaired"].get<bool>() ? state + ", repaired" : state;
}

/** A value as text for a terminal. */
std::string text(const ordered_json &value)
{
    return printable(value.is_string() ? value.get<std::string>()
                                       : value.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
}

/** A number with a unit, or "-" if it is unknown. */
std::string measure(const ordered_json &value, int digits, const std::string &unit = "")
{
    return value.is_number() ? fixed(value.get<double>(), digits) + unit : std::string("-");
}

/** A rate, or "-" if it is unknown; with three significant digits if it is low. */
std::string rate(const ordered_json &value, int digits)
{
    constexpr double low = 10.0;
    const bool is_low = value.is_number() && value.get<double>() < low && value.get<double>() > 0.0;
    return is_low ? three_digits(value.get<double>()) : measure(value, digits);
}

/** A value as text for a terminal, or "unknown". */
std::string known(const ordered_json &value)
{
    return value.is_null() || value == "" ? "unknown" : text(value);
}

/** Prints the calibrations. */
void print_calibrations(std::ostream &out, const ordered_json &calibrations)
{
    for (const auto &used : calibrations)
    {
        out << "calibration: sensor " << text(used["sensor_id"]) << " at " << text(used["temperature"])
            << " degrees";
        if (used["first_frame"] != 0)
        {
            out << " from frame " << text(used["first_frame"]);
        }
        out << "\n";
    }
}

/** The sweep rate: the configured one, or else the highest possible one. */
std::string describe_sweep_rate(const ordered_json &item)
{
    return item["sweep_rate"].is_null() ? rate(item["max_sweep_rate"], 1) + " (highest)"
                                        : rate(item["sweep_rate"], 1);
}

/** Prints how an incomplete recording can be completed, or why it cannot. */
void print_advice(std::ostream &out, const ordered_json &about)
{
    if (about["complete"].get<bool>() || about["in_progress"].get<bool>())
    {
        return;
    }
    if (about["repair_obstacle"].is_null())
    {
        out << "to complete it: vantor repair " << shell_word(about["recording"].get<std::string>()) << "\n";
    }
    else
    {
        out << "\"vantor repair\" refuses to change it: " << text(about["repair_obstacle"]) << "\n";
    }
}

/** Describes how much faster the clock of a board runs than that of the computer. */
std::string describe_drift(const ordered_json &drift)
{
    const auto ppm = [](double value) {
        return fixed(std::abs(value), 1) + (value < 0.0 ? " ppm slow" : " ppm fast");
    };
    return "; the clock of the board is between " + ppm(drift[0].get<double>()) + " and " +
           ppm(drift[1].get<double>());
}

/** Prints when the first and the last tick were, as far as that is known. */
void print_times(std::ostream &out, const ordered_json &times)
{
    if (times.is_null())
    {
        return;
    }
    constexpr double milliseconds = 1e3;
    out << "ticks: " << text(times["first_utc"]) << " to " << text(times["last_utc"]) << ", known within "
        << three_digits(times["largest_bound_s"].get<double>() * milliseconds) << " ms";
    if (times["frames_unknown"] != 0)
    {
        out << ", unknown for " << counted(times["frames_unknown"].get<uint64_t>(), "frame");
    }
    const auto &drift = times["clock_drift_ppm"];
    out << (drift.is_null() ? std::string() : describe_drift(drift)) << "\n";
}

/** Prints the first lines: number of frames, state, origin. */
void print_origin(std::ostream &out, const ordered_json &about)
{
    out << text(about["recording"]) << ": " << counted(about["frames"].get<uint64_t>(), "frame")
        << describe_state(about) << ", started " << known(about["started"]) << ", vantor_server "
        << known(about["server_version"]) << "\n";
    print_advice(out, about);
    const auto &source = about["source"];
    for (const char *name : {"address", "board", "simulator"})
    {
        if (source.is_object() && source.contains(name))
        {
            out << name << ": " << text(source[name]) << "\n";
        }
    }
    print_times(out, about["times"]);
    if (const auto &truth = about["truth"]; !truth.is_null())
    {
        out << "truth: of " << counted(truth["frames"].get<uint64_t>(), "frame") << "\n";
    }
    print_calibrations(out, about["calibrations"]);
}

/** Prints one line per item with the totals of its frames. */
void print_frames(std::ostream &out, const ordered_json &items)
{
    text_table table({"group", "item", "sensor", "sub-sweeps", "sweeps", "samples/frame", "seconds",
                      "saturated", "delayed", "missing", "temperature"});
    for (const auto &item : items)
    {
        const auto degrees = item.contains("temperature")
                                 ? text(item["temperature"][0]) + " to " + text(item["temperature"][1])
                                 : std::string("-");
        table.add({text(item["group"]), text(item["item"]), text(item["sensor_id"]), text(item["subsweeps"]),
                   text(item["sweeps_per_frame"]), text(item["samples_per_frame"]),
                   fixed(item["seconds"].get<double>(), 2), text(item["frames_saturated"]),
                   text(item["frames_delayed"]), text(item["frames_missing"]), degrees});
    }
    table.print(out);
}

/** The strongest echo, with what should be known about it. */
std::string noted_echo(const ordered_json &item)
{
    const auto distance = measure(item["strongest_echo_m"], 3, " m");
    const auto &note = item["strongest_echo_note"];
    return note.is_null() ? distance : distance + " (" + text(note) + ")";
}

/** Prints one line per sub-sweep with its distances, and the levels and rates of its item. */
void print_ranges(std::ostream &out, const ordered_json &items)
{
    text_table table({"group", "item", "points", "from", "to", "step", "frames/s", "measured", "sweeps/s",
                      "mean level (LSB)", "strongest echo"});
    for (const auto &item : items)
    {
        for (const auto &range : item["ranges"])
        {
            const auto metres = [&](const char *name, int digits) {
                return measure(range.value(name, ordered_json()), digits, " m");
            };
            table.add({text(item["group"]), text(item["item"]), text(range["points"]), metres("start_m", 3),
                       metres("end_m", 3), metres("step_m", 4), rate(item["frame_rate"], 2),
                       rate(item["measured_frame_rate"], 2), describe_sweep_rate(item),
                       measure(item["mean_level"], 1), noted_echo(item)});
        }
    }
    out << "\n";
    table.print(out);
}

/** Prints the clear-channel assessment of the items that have one. */
void print_channels(std::ostream &out, const ordered_json &items)
{
    for (const auto &item : items)
    {
        const auto &channel = item["channel"];
        if (channel.is_null())
        {
            continue;
        }
        out << item["name"].get<std::string>() << ": " << text(channel["frames_valid"]) << " frames valid, "
            << text(channel["frames_not_valid"]) << " not valid, " << text(channel["frames_with_detection"])
            << " with another transmitter";
        if (channel.contains("value"))
        {
            const auto &value = channel["value"];
            out << ", value " << measure(value["lowest"], 3) << " to " << measure(value["highest"], 3)
                << ", mean " << measure(value["mean"], 3);
        }
        out << "\n";
    }
}

/** Prints the configuration of each item. */
void print_configurations(std::ostream &out, const ordered_json &items)
{
    for (const auto &item : items)
    {
        out << item["name"].get<std::string>() << ": " << text(item["configuration"]) << "\n";
    }
}

/** Prints the description of a recording as text. */
void print(std::ostream &out, const ordered_json &about)
{
    const auto &items = about["items"];
    print_origin(out, about);
    print_frames(out, items);
    print_ranges(out, items);
    out << "\n";
    print_channels(out, items);
    print_configurations(out, items);
    for (const auto &warning : about["warnings"])
    {
        out << text(warning) << "\n";
    }
    for (const auto &fault : about["damage"])
    {
        out << "damage: " << text(fault) << "\n";
    }
}

/** Prints a board of a recording of several. */
void print_board(std::ostream &out, const ordered_json &board)
{
    out << "\n" << text(board["directory"]) << "\n";
    if (board.contains("items"))
    {
        print(out, board);
        return;
    }
    out << "damage: " << text(board["damage"][0]) << "\n";
}

/** Checks the recordings of several boards and prints their descriptions. */
exit_code info_of_boards(const std::filesystem::path &recording, bool json, const command_streams &streams)
{
    const auto about = describe_boards(board_collection::read(recording), show_progress(streams));
    bool damaged = !about["damage"].empty();
    json ? print_json(streams.out, about) : print_boards(streams.out, about);
    for (const auto &board : about["boards"])
    {
        damaged = damaged || !board["damage"].empty();
        if (!json)
        {
            print_board(streams.out, board);
        }
    }
    if (damaged)
    {
        throw damaged_recording(recording.string() + " is damaged.");
    }
    return exit_code::success;
}

/** Checks a recording and prints its description. */
exit_code info(const std::filesystem::path &recording, bool json, const command_streams &streams)
{
    if (board_collection::is_at(recording))
    {
        return info_of_boards(recording, json, streams);
    }
    const auto check = check_recording(recording, show_progress(streams));
    const auto about = to_json(check);
    json ? print_json(streams.out, about) : print(streams.out, about);
    if (!check.faults.empty())
    {
        throw damaged_recording(describe_damage(check) + ".");
    }
    return exit_code::success;
}

} // namespace

command info_command()
{
    struct info_options
    {
        std::filesystem::path recording;
        bool json = false;
    };
    auto options = std::make_shared<info_options>();
    return {.name = "info",
            .help = "Check a recording and show what it contains.",
            .footer = info_footer,
            .options = {recording_argument(options->recording), json_flag(options->json)},
            .run = [options](const command_streams &streams) {
                return info(options->recording, options->json, streams);
            }};
}

} // namespace vantor
