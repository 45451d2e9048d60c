/** @file
 * A recording of the example session.
 */
#ifndef VANTOR_EXAMPLE_RECORDING_H
#define VANTOR_EXAMPLE_RECORDING_H

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

#include "vantor/arrived_frame.h"
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

/** A frame of the example session whose first item was measured at this time in UTC. */
frame example_frame_at(uint32_t number, const utc_time &utc);

/** Frames of the example session, from a number on, to be added together. */
class example_frames
{
public:
    example_frames(uint32_t first, uint32_t count);

    /** The frames; owned by this object. */
    [[nodiscard]] std::span<const arrived_frame> arrived() const noexcept
    {
        return arrived_;
    }

private:
    std::vector<frame> frames_;
    std::vector<arrived_frame> arrived_;
};

/** Most frames of the example session that are written at once: as many as have 16 kB of samples. */
inline constexpr uint32_t example_block_frames = 16384 / 380;

/** The example session, described. */
session_description example_description();

/** Records this many frames of the example session. */
void write_example_recording(const std::filesystem::path &directory, uint32_t frames);

} // namespace vantor::test

#endif
