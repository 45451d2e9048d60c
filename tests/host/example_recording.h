/** @file
 * A recording of the example session.
 */
#ifndef VANTOR_EXAMPLE_RECORDING_H
#define VANTOR_EXAMPLE_RECORDING_H

#include <cstdint>
#include <filesystem>

#include "vantor/session.h"
#include "vantor/session_description.h"

namespace vantor::test
{

/**
 * A frame of the example session.
 *
 * @param flags  members that its first item has in addition, or that replace others
 */
frame example_frame(uint32_t number, const nlohmann::json &flags = nlohmann::json::object());

/** The example session, described. */
session_description example_description();

/** Records this many frames of the example session. */
void write_example_recording(const std::filesystem::path &directory, uint32_t frames);

} // namespace vantor::test

#endif
