/** @file
 * Self-test: structure, ticks and number of frames.
 */
#include "selftest/selftest.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace vantor::selftest
{
namespace
{

using nlohmann::json;

/** Maximum number of groups in a session. */
constexpr size_t most_groups = 10;

/** Checks some frames of a session. */
void check_frames(bench &on, const json &groups)
{
    constexpr int count = 5;
    const auto &metadata = on.configure({{"groups", groups}});
    size_t items = 0;
    for (const auto &group : groups)
    {
        items += group.size();
    }
    check(metadata.items.size() == items, "metadata of " + std::to_string(items) + " items",
          std::to_string(metadata.items.size()) + " items");
    for (const auto &item : metadata.items)
    {
        check(item.sweep_length == 8 && item.frame_length % 8 == 0, "sweeps of 8 samples",
              std::to_string(item.sweep_length) + " samples in a sweep, " +
                  std::to_string(item.frame_length) + " in a frame");
    }
    for (int i = 0; i < count; ++i)
    {
        on.measure();
    }
    on.execute({{"command", "end"}});
}

void each_sensor_alone(bench &on)
{
    for (const auto sensor : on.sensors())
    {
        check_frames(on, json::array({json::array({small_item(sensor)})}));
    }
}

void all_sensors_at_once(bench &on)
{
    auto group = json::array();
    for (const auto sensor : on.sensors())
    {
        group.push_back(small_item(sensor));
    }
    check_frames(on, json::array({group}));
}

void sensors_one_after_the_other(bench &on)
{
    auto groups = json::array();
    for (const auto sensor : on.sensors())
    {
        if (groups.size() < most_groups)
        {
            groups.push_back(json::array({small_item(sensor)}));
        }
    }
    check_frames(on, groups);
}

/** A stream paced by the server: the ticks, and the number of frames left out for each number of frames sent.
 */
class paced_stream
{
public:
    /** Measures a frame on demand; then receives frames of the stream, with statistics after each. */
    paced_stream(bench &on, size_t count) : on_(on)
    {
        last_tick_ = on.measure().items()[0].tick;
        const auto before = on.statistics().header;
        frames_before_ = before.at("frames");
        left_out_before_ = before.at("frames_left_out");
        left_out_[0] = 0;
        on.execute({{"command", "start"}});
        await_statistics();
        for (size_t answers = 0; answers < count;)
        {
            answers += take_message(count) ? 1U : 0U;
        }
        on.end_stream("stop");
    }

    /**
     * Checks that the frames fit a grid of the period that starts at some moment after the frame on demand:
     * each frame is measured after it was due, and before the next frame that was not left out was due.
     */
    void check_places(int64_t period) const
    {
        int64_t earliest_start = 0;
        int64_t latest_start = INT64_MAX;
        for (size_t k = 0; k < ticks_.size(); ++k)
        {
            const auto place = static_cast<int64_t>(k);
            latest_start = std::min(latest_start, ticks_[k] - (place + fewest_left_out(k)) * period);
            earliest_start =
                std::max(earliest_start, ticks_[k] - (place + 1 + most_left_out(k + 1)) * period);
            check(earliest_start < latest_start,
                  "a frame every " + std::to_string(period) +
                      " ticks, never early, except for those counted in \"frames_left_out\"",
                  "frame " + std::to_string(k + 1) + " with a tick " + std::to_string(ticks_[k] - ticks_[0]) +
                      " after the first one, " + std::to_string(left_out_.rbegin()->second) + " left out");
        }
    }

private:
    /** Receives a frame or statistics; true for statistics. */
    bool take_message(size_t count)
    {
        const auto received = on_.receive(on_.time_until(deadline_));
        check(received.has_value(), "a frame", "nothing");
        if (bench::is_frame(*received))
        {
            check(on_.time_until(deadline_).count() > 0, "the answer to \"stats\"", "only frames");
            take_frame(on_.check_frame(*received), count);
            return false;
        }
        const auto &header = received->header;
        check(header.value("command", json()) == "stats", "a frame or the answer to \"stats\"",
              describe(header));
        left_out_[header.at("frames").get<uint64_t>() - frames_before_] =
            header.at("frames_left_out").get<int64_t>() - left_out_before_;
        await_statistics();
        return true;
    }

    /** Extends the deadline: a frame and the statistics after it may take as long as a frame on demand. */
    void await_statistics()
    {
        deadline_ = on_.after(on_.timeouts().frame);
    }

    /** Stores the tick of a frame and requests the statistics. */
    void take_frame(const frame &received, size_t count)
    {
        if (ticks_.size() == count)
        {
            return;
        }
        const auto tick = received.items()[0].tick;
        check(tick != last_tick_, "a different tick for each frame", std::to_string(tick) + " twice");
        // In 32 bits, since ticks wrap around.
        ticks_.push_back((ticks_.empty() ? 0 : ticks_.back()) + uint32_t{tick - last_tick_});
        last_tick_ = tick;
        on_.send("{\"command\":\"stats\"}\n");
    }

    /** Minimum number of frames left out after this many frames. */
    [[nodiscard]] int64_t fewest_left_out(size_t sent) const
    {
        return std::prev(left_out_.upper_bound(sent))->second;
    }

    /** Maximum number of frames left out after this many frames. */
    [[nodiscard]] int64_t most_left_out(size_t sent) const
    {
        const auto found = left_out_.lower_bound(sent);
        return found == left_out_.end() ? left_out_.rbegin()->second : found->second;
    }

    bench &on_;
    bench::time_point deadline_; /**< for the next statistics */
    uint64_t frames_before_ = 0;
    int64_t left_out_before_ = 0;
    uint32_t last_tick_ = 0;               /**< initially of the frame on demand */
    std::vector<int64_t> ticks_;           /**< relative to that frame */
    std::map<uint64_t, int64_t> left_out_; /**< by the number of frames sent */
};

void pace(bench &on)
{
    constexpr int rate = 10;
    constexpr size_t count = 20;
    const auto ticks_per_second = on.require_ticks();
    auto configuration = small_session(on);
    configuration["update_rate"] = rate;
    const auto period = on.configure(configuration).tick_period;
    const auto expected = std::llround(ticks_per_second / rate);
    check(period == expected, "\"tick_period\" " + std::to_string(expected), std::to_string(period));
    paced_stream(on, count).check_places(expected);
}

void many_frames(bench &on)
{
    constexpr unsigned count = 1000;
    on.configure(small_session(on));
    const uint64_t before = on.statistics().header.at("frames");
    on.execute({{"command", "start"}});
    for (unsigned i = 0; i < count; ++i)
    {
        on.next_frame();
    }
    const auto received = count + on.end_stream("stop");
    const auto sent = on.statistics().header.at("frames").get<uint64_t>() - before;
    check(received == sent, std::to_string(sent) + " frames, the number that \"stats\" reports",
          std::to_string(received) + " frames");
}

} // namespace

std::vector<selftest_case> frame_cases()
{
    return {
        {"each sensor measures alone", "supply, select and interrupt lines of the sensor", each_sensor_alone},
        {"all sensors measure at the same time", "whether two sensors share a line, and memory",
         all_sensors_at_once},
        {"sensors measure one after the other", "memory, and the server's log", sensors_one_after_the_other},
        {"frames keep the configured rate",
         "clock and sleep of the board: rate and wrap-around of the clock, order of the interrupts", pace},
        {"1,000 frames arrive without a gap", "whether the port loses bytes when the line is busy",
         many_frames},
    };
}

} // namespace vantor::selftest
