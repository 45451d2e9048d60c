/** @file
 * What viewers see of a stream of frames beside the frames.
 */
#ifndef VANTOR_STREAM_WATCH_H
#define VANTOR_STREAM_WATCH_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/event_loop.h"
#include "vantor/frame_sink.h"
#include "vantor/frame_tally.h"

namespace vantor
{

/** The sensor of each item of a configuration. */
std::vector<unsigned> sensors_of(const nlohmann::json &configuration);

/** Counts the frames of a session and their flags, and measures their rate. */
class stream_watch : public frame_sink
{
public:
    /**
     * @param sensors  the sensor of each item
     * @param loop     shows the time; must outlive this object
     */
    stream_watch(std::vector<unsigned> sensors, const event_loop &loop);

    void begin(const segment &next) override;
    void add(const std::shared_ptr<const frame> &received) override;

    /** Number of frames. */
    [[nodiscard]] uint64_t frames() const noexcept
    {
        return tally_.frames();
    }

    /** Frames per second over the last seconds; 0 if none have arrived for longer than usual. */
    [[nodiscard]] double rate() const;

    /** Adds what is known to a state message. */
    void add_to(nlohmann::ordered_json &state) const;

private:
    using time_point = event_loop::time_point;

    void note_items(const frame &received);
    [[nodiscard]] std::chrono::duration<double> silence() const;

    const event_loop &loop_;
    std::vector<unsigned> sensors_;
    frame_tally tally_;
    std::deque<time_point> arrivals_;
    std::map<unsigned, int> temperatures_; /**< of each sensor */
    bool calibration_needed_ = false;
};

} // namespace vantor

#endif
