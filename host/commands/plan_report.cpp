/** @file
 * Prints the figures of a session.
 */
#include "commands/plan_report.h"

#include <cmath>
#include <ostream>
#include <string>

#include "commands/text_table.h"
#include "commands/validation.h"
#include "recording/number_text.h"
#include "recording/printable.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** Prints the distances of a sub-sweep. */
void print_subsweep(std::ostream &out, const subsweep_plan &subsweep)
{
    out << "  distance  " << fixed(subsweep.first_m, 4) << " to " << fixed(subsweep.last_m, 4) << " m, "
        << subsweep.points << " points, one every " << fixed(subsweep.step_m, 4) << " m\n"
        << "  pulse     " << fixed(subsweep.pulse_width_m, 4) << " m wide, with "
        << fixed(subsweep.points_per_pulse(), 1) << " points; echoes unambiguous up to "
        << fixed(subsweep.unambiguous_m, 3) << " m\n";
}

/** Prints the figures of an item. */
void print_item(std::ostream &out, const item_plan &item, const std::string &mark)
{
    out << "group " << item.group + 1 << ", item " << item.index + 1 << ", sensor " << item.sensor_id << ": "
        << item.frame_length() << " samples in a frame\n";
    for (const auto &subsweep : item.subsweeps)
    {
        print_subsweep(out, subsweep);
    }
    out << "  sweep     " << three_digits(item.sweep_s * 1e3) << "* ms; "
        << (item.paced_sweeps ? three_digits(item.sweep_rate) + " sweeps/s, " : "") << "at most "
        << three_digits(item.max_sweep_rate) << mark << " sweeps/s"
        << (item.high_speed_mode ? ", in high-speed mode" + mark : "") << "\n"
        << "  frame     " << three_digits(item.frame_s * 1e3) << "* ms with " << item.sweeps
        << (item.sweeps == 1 ? " sweep" : " sweeps") << "\n";
    if (item.sweeps > 1)
    {
        const auto sweep_mark = item.paced_sweeps ? "" : mark;
        out << "  velocity  unambiguous below " << three_digits(*item.greatest_velocity()) << sweep_mark
            << " m/s, in steps of " << three_digits(*item.smallest_velocity()) << sweep_mark << " m/s\n";
    }
}

/** Prints the frame rates of the session. */
void print_rates(std::ostream &out, const session_plan &session, std::optional<double> baudrate)
{
    const double reached = session.expected_frame_rate();
    out << "rate        ";
    if (!(session.frame_rate > 0.0))
    {
        out << "not configured: as fast as possible, at most " << three_digits(reached) << "* frames/s";
    }
    else
    {
        out << three_digits(session.frame_rate) << " frames/s configured";
        if (reached < session.frame_rate)
        {
            out << ", at most " << three_digits(reached) << "* reached: frames are left out";
        }
    }
    out << "\n            up to " << three_digits(lasting_frame_rate(session, baudrate))
        << "* frames/s can be configured without leaving frames out\n";
}

/** Prints what the session needs of its link. */
void print_link(std::ostream &out, const session_plan &session, std::optional<double> baudrate)
{
    const auto bytes = static_cast<double>(session.frame_bytes());
    const double rate = session.expected_frame_rate();
    out << "data        " << format_bytes(bytes) << " in a frame, " << format_bytes(bytes * rate) << "/s\n"
        << "link        at least " << fixed(std::ceil(bytes * rate * 10.0), 0) << " baud";
    if (baudrate)
    {
        const double lasting = lasting_frame_rate(session, baudrate);
        out << "; at " << fixed(*baudrate, 0) << " baud, sending a frame takes "
            << three_digits(1e3 / link_frame_rate(session, *baudrate)) << " ms";
        if (session.frame_rate > 0.0)
        {
            out << (lasting < session.frame_rate ? ": too slow for this rate" : ": fast enough");
        }
    }
    out << "\n";
}

/** Prints the totals of the session. */
void print_totals(std::ostream &out, const session_plan &session, std::optional<double> baudrate)
{
    print_rates(out, session, baudrate);
    print_link(out, session, baudrate);
    out << "memory      " << format_bytes(static_cast<double>(session.memory_bytes))
        << (session.memory_assumed ? "*" : "") << " of the board while it measures\n"
        << "* assumed, as for the simulated sensor"
        << (session.sensors_assumed ? "; \"vantor plan\" with --connect asks a server\n" : "\n");
}

/** An optional velocity as JSON. */
ordered_json to_json(std::optional<double> velocity)
{
    return velocity ? ordered_json(*velocity) : ordered_json();
}

/** The sub-sweeps of an item as JSON. */
ordered_json to_json(const std::vector<subsweep_plan> &subsweeps)
{
    auto list = ordered_json::array();
    for (const auto &subsweep : subsweeps)
    {
        list.push_back({{"offset", subsweep.offset},
                        {"points", subsweep.points},
                        {"first_m", subsweep.first_m},
                        {"last_m", subsweep.last_m},
                        {"step_m", subsweep.step_m},
                        {"pulse_width_m", subsweep.pulse_width_m},
                        {"points_per_pulse", subsweep.points_per_pulse()},
                        {"unambiguous_m", subsweep.unambiguous_m}});
    }
    return list;
}

/** An item as JSON. */
ordered_json to_json(const item_plan &item)
{
    return {{"group", item.group + 1},
            {"item", item.index + 1},
            {"sensor_id", item.sensor_id},
            {"sweeps_per_frame", item.sweeps},
            {"samples_per_sweep", item.sweep_length},
            {"samples_per_frame", item.frame_length()},
            {"high_speed_mode", item.high_speed_mode},
            {"sweep_s", item.sweep_s},
            {"frame_s", item.frame_s},
            {"sweep_rate", item.sweep_rate},
            {"max_sweep_rate", item.max_sweep_rate},
            {"max_frame_rate", 1.0 / item.frame_s},
            {"greatest_velocity_mps", to_json(item.greatest_velocity())},
            {"smallest_velocity_mps", to_json(item.smallest_velocity())},
            {"subsweeps", to_json(item.subsweeps)}};
}

/** The names of the figures that are assumed. */
ordered_json assumed_figures(const session_plan &session)
{
    ordered_json names = {"sweep_s", "frame_s", "max_frame_rate", "expected_frame_rate",
                          "lasting_frame_rate"};
    if (session.sensors_assumed)
    {
        names.push_back("max_sweep_rate");
        names.push_back("high_speed_mode");
    }
    if (session.memory_assumed)
    {
        names.push_back("memory_bytes");
    }
    return names;
}

} // namespace

void print_plan(std::ostream &out, const session_plan &session, std::optional<double> baudrate)
{
    if (session.items.empty())
    {
        return;
    }
    for (const auto &item : session.items)
    {
        print_item(out, item, session.sensors_assumed ? "*" : "");
    }
    print_totals(out, session, baudrate);
}

void print_doubts(std::ostream &out, const std::filesystem::path &file, const session_plan &session)
{
    for (const auto &doubt : session.doubts)
    {
        out << printable(file.string()) << ": warning: " << doubt.pointer << " is " << doubt.got << "; use "
            << doubt.allowed << "\n";
    }
}

ordered_json plan_json(const session_plan &session, std::optional<double> baudrate)
{
    auto items = ordered_json::array();
    for (const auto &item : session.items)
    {
        items.push_back(to_json(item));
    }
    const double rate = session.expected_frame_rate();
    return {
        {"frame_rate", session.frame_rate},
        {"max_frame_rate", session.max_frame_rate},
        {"expected_frame_rate", rate},
        {"lasting_frame_rate", session.items.empty() ? 0.0 : lasting_frame_rate(session, baudrate)},
        {"frame_bytes", session.frame_bytes()},
        {"payload_bytes", session.payload_bytes},
        {"bytes_per_second", static_cast<double>(session.frame_bytes()) * rate},
        {"link_frame_rate", baudrate ? ordered_json(link_frame_rate(session, *baudrate)) : ordered_json()},
        {"memory_bytes", session.memory_bytes},
        {"assumed", assumed_figures(session)},
        {"warnings", faults_json(session.doubts)},
        {"items", std::move(items)}};
}

} // namespace vantor
