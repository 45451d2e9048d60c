/** @file
 * The figures of a session, as rows of a table.
 */
#include "view/plan_figures.h"

#include <optional>
#include <string>

#include "recording/number_text.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** Adds rows to a table. */
class figure_table
{
public:
    /** Adds a row. */
    void add(const std::string &name, const std::string &text)
    {
        rows_.push_back(ordered_json::array({name, text}));
    }

    /** The rows. */
    [[nodiscard]] const ordered_json &rows() const noexcept
    {
        return rows_;
    }

private:
    ordered_json rows_ = ordered_json::array();
};

/** Adds the figures of a sub-sweep. */
void add_subsweep(figure_table &table, const std::string &prefix, const subsweep_plan &subsweep)
{
    table.add(prefix + "distance", fixed(subsweep.first_m, 3) + " to " + fixed(subsweep.last_m, 3) + " m, " +
                                       counted(subsweep.points, "point"));
    table.add(prefix + "step", fixed(subsweep.step_m * 1e3, 1) + " mm");
    table.add(prefix + "pulse width",
              fixed(subsweep.pulse_width_m, 3) + " m, " + fixed(subsweep.points_per_pulse(), 1) + " points");
    table.add(prefix + "unambiguous to", fixed(subsweep.unambiguous_m, 2) + " m");
}

/** Adds the figures of an item; a mark shows what is assumed. */
void add_item(figure_table &table, const std::string &prefix, const item_plan &item, const std::string &mark)
{
    for (size_t i = 0; i < item.subsweeps.size(); ++i)
    {
        const bool several = item.subsweeps.size() > 1;
        add_subsweep(table, prefix + (several ? "sub-sweep " + std::to_string(i + 1) + " " : ""),
                     item.subsweeps[i]);
    }
    table.add(prefix + "sweep time", three_digits(item.sweep_s * 1e3) + "* ms");
    table.add(prefix + "highest sweep rate", three_digits(item.max_sweep_rate) + mark + " /s");
    table.add(prefix + "frame time", three_digits(item.frame_s * 1e3) + "* ms");
    if (const auto greatest = item.greatest_velocity())
    {
        const auto sweep_mark = item.paced_sweeps ? "" : mark;
        table.add(prefix + "velocity", "below " + three_digits(*greatest) + sweep_mark +
                                           " m/s, in steps of " + three_digits(*item.smallest_velocity()) +
                                           sweep_mark + " m/s");
    }
}

/** Describes the frame rate. */
std::string rate_figure(const session_plan &session)
{
    const double reached = session.expected_frame_rate();
    if (!(session.frame_rate > 0.0))
    {
        return "as fast as possible, at most " + three_digits(reached) + "* /s";
    }
    return three_digits(session.frame_rate) + " /s" +
           (reached < session.frame_rate
                ? ", at most " + three_digits(reached) + "* /s reached: frames are left out"
                : "");
}

} // namespace

ordered_json plan_figures(const session_plan &session)
{
    figure_table table;
    if (session.items.empty())
    {
        return table.rows();
    }
    const std::string mark = session.sensors_assumed ? "*" : "";
    for (const auto &item : session.items)
    {
        const bool several = session.items.size() > 1;
        add_item(table,
                 several ? std::to_string(item.group + 1) + "." + std::to_string(item.index + 1) + " " : "",
                 item, mark);
    }
    table.add("frame rate", rate_figure(session));
    table.add("frame rate without leaving frames out",
              "up to " + three_digits(lasting_frame_rate(session, std::nullopt)) + "* /s");
    table.add("frame size", format_bytes(static_cast<double>(session.frame_bytes())));
    table.add("data rate",
              format_bytes(static_cast<double>(session.frame_bytes()) * session.expected_frame_rate()) +
                  "/s");
    table.add("memory of the board",
              format_bytes(static_cast<double>(session.memory_bytes)) + (session.memory_assumed ? "*" : ""));
    table.add("*", "assumed, as for the simulated sensor");
    return table.rows();
}

} // namespace vantor
