/** @file
 * Writes a recording while its session is being received.
 */
#ifndef VANTOR_RECORDING_WRITER_H
#define VANTOR_RECORDING_WRITER_H

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

#include "vantor/arrived_frame.h"
#include "vantor/collection_stream.h"
#include "vantor/segment.h"
#include "vantor/session.h"
#include "vantor/session_description.h"

namespace vantor
{

class capture_list;
class item_writer;
class truth_writer;

/** Where in a stream a recording begins. */
enum class recording_start
{
    with_stream,  /**< frames that are missing before its first one belong to it */
    within_stream /**< those that are missing before its first one do not belong to it */
};

/**
 * Writes a recording: SigMF files for each item, and a collection.
 *
 * The recording can be read at any time, even after the program was killed: frames are appended completely,
 * and the documents exist from the start. Memory does not grow with the number of frames. Short frames that
 * are added together are written in blocks: a program that is killed leaves at most one block that some items
 * do not have.
 */
class recording_writer
{
public:
    /**
     * Creates the directory and the files.
     *
     * @param directory  must not exist, or must be empty
     * @param session    the description of the session; its configuration must have as many items as its
     *                   metadata
     * @param start      where in the stream the first frame is
     * @throws protocol_error if the numbers of items differ
     * @throws recording_error if the recording cannot be created
     */
    recording_writer(std::filesystem::path directory, session_description session,
                     recording_start start = recording_start::with_stream);
    recording_writer(const recording_writer &) = delete;
    recording_writer &operator=(const recording_writer &) = delete;
    recording_writer(recording_writer &&other) noexcept;
    recording_writer &operator=(recording_writer &&other) noexcept;
    ~recording_writer();

    /**
     * Appends a frame. A capture segment begins where frame::missing() grows.
     *
     * @param arrival  when the frame arrived
     * @throws recording_error if it cannot be written; the recording then ends with the previous frame
     */
    void add(const frame &received,
             std::chrono::system_clock::time_point arrival = std::chrono::system_clock::now());

    /**
     * Appends some frames, as the function above does, but with fewer calls of the system if they are short.
     *
     * @throws recording_error if one of them cannot be written; the recording then ends with the previous one
     */
    void add(std::span<const arrived_frame> frames);

    /**
     * Begins a segment: the next frame is its first one. The documents are written again with the frame.
     * Before the first frame, there is nothing to continue: the recording then begins with the segment.
     *
     * @param next  why and when, and the metadata of its session
     */
    void begin_segment(const segment &next);

    /**
     * Waits until every frame is on the disk.
     *
     * @throws recording_error if that fails, or somebody has removed a file
     */
    void sync();

    /**
     * Writes the final documents, with rates and digests.
     *
     * @throws recording_error if they cannot be written, or somebody has removed, moved or replaced a file
     */
    void finish();

    /** Number of frames written. */
    [[nodiscard]] uint64_t frames() const noexcept
    {
        return frames_;
    }

    /** Number of frames missing so far, as the recording counts them. */
    [[nodiscard]] uint64_t missing() const noexcept;

    /** Seconds from the first to the last frame, as in the frame table of the first item. */
    [[nodiscard]] double seconds() const noexcept;

    /** Number of bytes of samples written, for all items. */
    [[nodiscard]] uint64_t data_length() const noexcept;

    /** The metadata of the items as last written, which the collection lists. */
    [[nodiscard]] const std::vector<collection_stream> &streams() const noexcept
    {
        return streams_;
    }

    /** The directory of the recording. */
    [[nodiscard]] const std::filesystem::path &directory() const noexcept
    {
        return directory_;
    }

private:
    uint64_t belonging(uint64_t missing);
    void append(std::span<const arrived_frame> block);
    void write_block(std::span<const arrived_frame> block);
    void note_captures(std::span<const arrived_frame> block);
    void write_documents(bool finished);

    std::filesystem::path directory_;
    session_description session_;
    std::vector<item_writer> items_;
    std::unique_ptr<truth_writer> truth_;    /**< null if no truth is recorded */
    std::vector<collection_stream> streams_; /**< that the collection lists; empty until it exists */
    std::unique_ptr<capture_list> captures_; /**< null only if moved from */
    bool break_pending_ = false;             /**< a segment begins with the next frame */
    uint64_t missing_before_;                /**< frames missing before the recording began */
    size_t block_frames_;                    /**< most frames of a block */
    uint64_t frames_ = 0;
};

} // namespace vantor

#endif
