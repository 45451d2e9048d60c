/** @file
 * Writes frames that were kept in memory to a recording.
 */
#include "hub/keep_frames.h"

#include <utility>

#include "vantor/recording_error.h"
#include "vantor/recording_writer.h"

namespace vantor
{

written_amount keep_frames(const std::vector<kept_frame> &frames, session_description session,
                           const std::filesystem::path &directory)
{
    if (frames.empty())
    {
        throw recording_error("There are no frames to keep: none have arrived in this time.");
    }
    session.metadata = frames.front().what->metadata();
    recording_writer writer(directory, std::move(session), recording_start::within_stream);
    for (const auto &kept : frames)
    {
        if (kept.begins)
        {
            writer.begin_segment(*kept.begins);
        }
        writer.add(*kept.what, kept.arrival);
    }
    writer.sync();
    writer.finish();
    return {.frames = writer.frames(), .missing = writer.missing(), .bytes = writer.data_length()};
}

} // namespace vantor
