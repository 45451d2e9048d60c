/** @file
 * The frames of a recording as messages, over and over.
 */
#ifndef VANTOR_FRAME_SOURCE_H
#define VANTOR_FRAME_SOURCE_H

#include <cstdint>
#include <string>
#include <vector>

#include "recording/frame_table.h"
#include "recording/recording_reader.h"

namespace vantor
{

/** A frame as a server sends it. */
struct replayed_frame
{
    double seconds = 0.0; /**< since the first frame, laps included */
    std::string bytes;    /**< header, line feed, samples */
};

/** Reads a recording frame by frame; after the last comes the first again, with ticks that go on. */
class frame_source
{
public:
    /** @param recording  with at least one frame */
    explicit frame_source(recording_reader &recording);

    /** Begins with the first frame again. */
    void rewind();

    /**
     * The next frame.
     *
     * @throws bad_recording when a file cannot be read
     */
    replayed_frame next();

private:
    void open_tables();
    void begin_lap();

    recording_reader &recording_;
    std::vector<frame_table> tables_;
    uint64_t number_ = 0;       /**< of the next frame */
    double lap_seconds_ = 0.0;  /**< when the present lap began */
    uint32_t lap_ticks_ = 0;    /**< what is added to ticks in the present lap */
    double last_seconds_ = 0.0; /**< of the last frame in its lap */
};

} // namespace vantor

#endif
