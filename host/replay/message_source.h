/** @file
 * The frames of a recording as messages, in an endless loop.
 */
#ifndef VANTOR_MESSAGE_SOURCE_H
#define VANTOR_MESSAGE_SOURCE_H

#include <cstdint>
#include <string>
#include <vector>

#include "recording/frame_table.h"
#include "recording/recording_reader.h"

namespace vantor
{

/** A frame message as a server sends it. */
struct replayed_frame
{
    double seconds = 0.0; /**< time since the first frame, including earlier laps */
    std::string bytes;    /**< header, line feed, samples */
};

/** Reads a recording frame by frame. After the last frame it starts again; the ticks continue. */
class message_source
{
public:
    /** @param recording  a recording with at least one frame */
    explicit message_source(recording_reader &recording);

    /** Starts again with the first frame. */
    void rewind();

    /**
     * Returns the next frame.
     *
     * @throws bad_recording if a file cannot be read
     */
    replayed_frame next();

private:
    void open_tables();
    void begin_lap();

    recording_reader &recording_;
    std::vector<frame_table> tables_;
    uint64_t number_ = 0;       /**< number of the next frame */
    double lap_seconds_ = 0.0;  /**< when the current lap began */
    uint32_t lap_ticks_ = 0;    /**< added to the ticks in the current lap */
    double last_seconds_ = 0.0; /**< time of the last frame in its lap */
};

} // namespace vantor

#endif
