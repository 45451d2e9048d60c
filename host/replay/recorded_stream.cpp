/** @file
 * A recording as a replay server sends it.
 */
#include "replay/recorded_stream.h"

#include <set>
#include <utility>

#include "vantor/client.h"
#include "version.h"

namespace vantor
{

recorded_stream::recorded_stream(recording_reader &recording, event_loop &loop, replay_settings settings)
    : recording_(recording), settings_(std::move(settings)),
      source_(recording, {.speed = settings_.speed, .endless = true}, loop)
{
}

nlohmann::ordered_json recorded_stream::identity() const
{
    std::set<unsigned> sensors;
    for (const auto &item : recording_.items())
    {
        sensors.insert(item.configuration.sensor_id);
    }
    const auto &server = recording_.session().server;
    return {{"server_version", std::string(version) + " (replay)"},
            {"protocol_version", protocol_version},
            {"sensor", server.sensor},
            {"sensor_count", sensors.empty() ? 0 : *sensors.rbegin()},
            {"connected_sensors", sensors},
            {"ticks_per_second", server.ticks_per_second}};
}

const nlohmann::json &recorded_stream::configuration() const
{
    return recording_.session().configuration;
}

const nlohmann::json &recorded_stream::metadata() const
{
    return recording_.session().metadata.document;
}

void recorded_stream::begin()
{
    source_.rewind();
    lap_frames_ = 0;
}

void recorded_stream::start()
{
    source_.start();
}

std::optional<std::string> recorded_stream::take_due()
{
    const auto played = source_.receive(std::chrono::milliseconds(0));
    return played ? std::optional(note(*played)) : std::nullopt;
}

std::optional<std::string> recorded_stream::take_next()
{
    return note(source_.next());
}

event_loop::time_point::duration recorded_stream::time_until_due()
{
    return source_.time_until_due();
}

/** Notes a frame that is to be sent; returns it as a message. */
std::string recorded_stream::note(const frame &played)
{
    if (lap_frames_ == recording_.frames())
    {
        lap_frames_ = 0;
        settings_.started_again();
    }
    ++lap_frames_;
    return encode_frame(played);
}

} // namespace vantor
