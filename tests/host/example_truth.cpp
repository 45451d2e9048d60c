/** @file
 * The truth of the example session.
 */
#include "example_truth.h"

#include <array>
#include <memory>
#include <utility>

#include "example_recording.h"
#include "vantor/recording_writer.h"

namespace vantor::test
{
namespace
{

/** The members that all lines of a session have. */
nlohmann::json session_members(int number)
{
    return {{"session", number}, {"id", "0123456789abcde" + std::to_string(number)}};
}

} // namespace

nlohmann::json example_scene()
{
    return {{"seed", 7},
            {"clock", "virtual"},
            {"sensors", 2},
            {"scene", {{"targets", {{{"distance_m", 0.3}, {"strength_m2", 1}}}}}}};
}

std::string session_line(int number)
{
    auto line = example_scene();
    line.update(session_members(number));
    return line.dump() + "\n";
}

std::string row_line(int session, const item_truth &truth)
{
    nlohmann::json line = encode_truth(truth);
    line.update(session_members(session));
    return line.dump() + "\n";
}

item_truth truth_with(unsigned sensor_id, uint32_t tick, const std::vector<double> &distances_m)
{
    item_truth truth{
        .sensor_id = sensor_id, .tick = tick, .temperature = 25, .noise_power = 22500.0, .targets = {}};
    for (const double distance : distances_m)
    {
        truth.targets.push_back({.target = truth.targets.size(),
                                 .distance_m = distance,
                                 .velocity_m_s = 0.1,
                                 .amplitude = 4743.4,
                                 .phase_rad = 1.5,
                                 .snr_db = 30.0});
    }
    return truth;
}

frame frame_with_truth(uint32_t number)
{
    auto received = example_frame(number);
    const std::array sensors{1U, 2U, 2U};
    const std::array distances{0.3, 0.2, -0.1};
    frame_truth truth;
    for (size_t i = 0; i < sensors.size(); ++i)
    {
        truth.items.emplace_back(truth_with(sensors.at(i), received.items()[i].tick, {distances.at(i)}));
    }
    received.set_truth(std::make_shared<const frame_truth>(std::move(truth)));
    return received;
}

session_description description_with_truth()
{
    auto described = example_description();
    described.truth = example_scene();
    return described;
}

void write_recording_with_truth(const std::filesystem::path &directory, uint32_t frames)
{
    recording_writer writer(directory, description_with_truth());
    for (uint32_t number = 0; number < frames; ++number)
    {
        writer.add(frame_with_truth(number));
    }
    writer.finish();
}

} // namespace vantor::test
