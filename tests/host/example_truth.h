/** @file
 * The truth of the example session.
 */
#ifndef VANTOR_EXAMPLE_TRUTH_H
#define VANTOR_EXAMPLE_TRUTH_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "vantor/session.h"
#include "vantor/session_description.h"

namespace vantor::test
{

/** The scene of a truth, and where it comes from. */
nlohmann::json example_scene();

/** The line of a server that begins a session with this scene. */
std::string session_line(int number);

/** The line of a server with what a sensor should have found. */
std::string row_line(int session, const item_truth &truth);

/** What a sensor should have found: an echo at each of these distances, with 30 dB. */
item_truth truth_with(unsigned sensor_id, uint32_t tick, const std::vector<double> &distances_m);

/** A frame of the example session whose items have a target each, at 0.3 m, 0.2 m and -0.1 m. */
frame frame_with_truth(uint32_t number);

/** The example session with a truth. */
session_description description_with_truth();

/** Records this many frames of the example session with their truth. */
void write_recording_with_truth(const std::filesystem::path &directory, uint32_t frames);

} // namespace vantor::test

#endif
