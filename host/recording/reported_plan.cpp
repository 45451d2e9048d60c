/** @file
 * The figures of a session that a server has reported.
 */
#include "vantor/reported_plan.h"

#include <algorithm>

namespace vantor
{
namespace
{

/** Converts the distances of an item to another base step. */
void set_base_step(item_plan &item, double base_step_m)
{
    const double factor = base_step_m / item.base_step_m;
    item.base_step_m = base_step_m;
    for (auto &subsweep : item.subsweeps)
    {
        subsweep.first_m *= factor;
        subsweep.last_m *= factor;
        subsweep.step_m *= factor;
    }
}

} // namespace

void apply_metadata(session_plan &session, const session_metadata &metadata)
{
    const auto count = std::min(session.items.size(), metadata.items.size());
    for (size_t i = 0; i < count; ++i)
    {
        auto &item = session.items[i];
        const auto &layout = metadata.items[i];
        set_base_step(item, layout.base_step_length_m);
        item.high_speed_mode = layout.high_speed_mode;
        item.max_sweep_rate = layout.max_sweep_rate;
        item.sweep_rate = item.paced_sweeps ? item.sweep_rate : layout.max_sweep_rate;
    }
    session.sensors_assumed = false;
}

} // namespace vantor
