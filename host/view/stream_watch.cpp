/** @file
 * What viewers see of a stream of frames beside the frames.
 */
#include "view/stream_watch.h"

#include <algorithm>
#include <utility>

#include "recording/stream_facts.h"
#include "vantor/configuration.h"

namespace vantor
{
namespace
{

/** The time over which the rate is measured; longer if fewer than two frames arrive in it. */
constexpr std::chrono::seconds rate_window{2};

/** Silence after which the rate is 0: this many periods, and at least the window. */
constexpr double longest_silence = 3.0;

} // namespace

std::vector<unsigned> sensors_of(const nlohmann::json &configuration)
{
    std::vector<unsigned> sensors;
    for (const auto &item : list_items(configuration))
    {
        sensors.push_back(item.sensor_id);
    }
    return sensors;
}

stream_watch::stream_watch(std::vector<unsigned> sensors, const event_loop &loop)
    : loop_(loop), sensors_(std::move(sensors))
{
}

void stream_watch::begin(const segment &next)
{
    tally_.begin(next);
}

void stream_watch::add(const std::shared_ptr<const frame> &received)
{
    tally_.add(received);
    note_items(*received);
    arrivals_.push_back(loop_.now());
    while (arrivals_.size() > 2 && arrivals_[1] < loop_.now() - rate_window)
    {
        arrivals_.pop_front();
    }
}

double stream_watch::rate() const
{
    if (arrivals_.size() < 2)
    {
        return 0.0;
    }
    const std::chrono::duration<double> span = arrivals_.back() - arrivals_.front();
    const double period = span.count() / static_cast<double>(arrivals_.size() - 1);
    const double longest =
        std::max(std::chrono::duration<double>(rate_window).count(), longest_silence * period);
    return period > 0.0 && silence().count() <= longest ? 1.0 / period : 0.0;
}

void stream_watch::add_to(nlohmann::ordered_json &state) const
{
    const auto counts = tally_.total();
    state["frames"] = tally_.frames();
    state["rate"] = rate();
    state["missing"] = tally_.missing();
    state["delayed"] = counts.delayed;
    state["saturated"] = counts.saturated;
    state["invalid"] = notable_invalid(counts, tally_.breaks());
    state["calibration_needed"] = calibration_needed_;
    auto temperatures = nlohmann::ordered_json::array();
    for (const auto &[sensor, celsius] : temperatures_)
    {
        temperatures.push_back({{"sensor", sensor}, {"celsius", celsius}});
    }
    state["temperatures"] = std::move(temperatures);
}

/** Notes what the items of the last frame say. */
void stream_watch::note_items(const frame &received)
{
    const auto items = received.items();
    for (size_t i = 0; i < items.size(); ++i)
    {
        temperatures_[sensors_.at(i)] = items[i].temperature;
    }
    calibration_needed_ = std::any_of(items.begin(), items.end(),
                                      [](const frame_item &item) { return item.calibration_needed; });
}

/** Time since the last frame. */
std::chrono::duration<double> stream_watch::silence() const
{
    return loop_.now() - arrivals_.back();
}

} // namespace vantor
