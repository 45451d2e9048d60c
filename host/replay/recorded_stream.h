/** @file
 * A recording as a replay server sends it.
 */
#ifndef VANTOR_RECORDED_STREAM_H
#define VANTOR_RECORDED_STREAM_H

#include <cstdint>
#include <functional>

#include "hub/playback_source.h"
#include "replay/served_stream.h"
#include "vantor/event_loop.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** How a recording is served. */
struct replay_settings
{
    /** how much faster than measured the frames are sent; infinite for as fast as possible */
    double speed = 1.0;
    /** called before the first frame is sent again, after the last one */
    std::function<void()> started_again = [] {};
};

/** A recording, again and again. */
class recorded_stream : public served_stream
{
public:
    /**
     * @param recording  a recording with at least one frame; must outlive this object, like the loop
     * @param loop       waits until frames are due
     * @param settings   how it is served
     */
    recorded_stream(recording_reader &recording, event_loop &loop, replay_settings settings = {});

    [[nodiscard]] nlohmann::ordered_json identity() const override;
    [[nodiscard]] const nlohmann::json &configuration() const override;
    [[nodiscard]] const nlohmann::json &metadata() const override;
    void begin() override;
    void start() override;
    std::optional<std::string> take_due() override;
    std::optional<std::string> take_next() override;
    [[nodiscard]] event_loop::time_point::duration time_until_due() override;

private:
    std::string note(const frame &played);

    recording_reader &recording_;
    replay_settings settings_;
    playback_source source_;
    uint64_t lap_frames_ = 0; /**< sent since the first frame of the recording */
};

} // namespace vantor

#endif
