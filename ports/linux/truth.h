/** @file
 * The truth file of the Linux port: what the simulated sensors should have found.
 */
#ifndef VANTOR_LINUX_TRUTH_H
#define VANTOR_LINUX_TRUTH_H

#include <string>

#include "options.h"
#include "zet_simulator.h"

/**
 * Writes the truth of every frame to a file, a line of JSON for each session and for each frame of a sensor
 * (docs/simulator.md). Lines are written before the frame is sent. A file that exists is begun again, unless
 * it is the scene, or another server writes it: it stays locked.
 *
 * @param options  name of the file, and what is written about sessions
 * @param scene    what the sensors see
 * @return the observer for the simulator
 * @throws std::runtime_error if the file cannot be written
 */
zet_simulator_observer_t write_truth(const options_t &options, const zet_simulator_scene_t &scene);

#endif
