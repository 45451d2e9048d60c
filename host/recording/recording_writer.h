/** @file
 * Writes a recording while its session is being received.
 */
#ifndef VANTOR_RECORDING_WRITER_H
#define VANTOR_RECORDING_WRITER_H

#include <cstdint>
#include <filesystem>
#include <vector>

#include "recording/item_writer.h"
#include "recording/sigmf.h"
#include "vantor/session.h"

namespace vantor
{

/**
 * Writes a recording: a SigMF recording for each item and a collection.
 *
 * The recording can be read at any moment, also when the program is killed: frames are appended whole, and
 * the documents are there from the start. Memory does not grow with the number of frames.
 */
class recording_writer
{
public:
    /**
     * Creates the directory and the files.
     *
     * @param directory  must not exist, or be empty
     * @param session    what is recorded; its configuration must have the items of its metadata
     * @throws protocol_error when the server measures other items than those of the configuration
     * @throws recording_error when it cannot be created
     */
    recording_writer(std::filesystem::path directory, session_description session);

    /**
     * Appends a frame.
     *
     * @throws recording_error when it cannot be written; the recording then ends with the frame before
     */
    void add(const frame &received);

    /**
     * Notes that frames were lost between the last frame and the next one.
     *
     * @param frames  how many, at least 1
     */
    void add_loss(uint64_t frames);

    /**
     * Writes the final documents, with rates and digests.
     *
     * @throws recording_error when they cannot be written
     */
    void finish();

    /** Frames written. */
    [[nodiscard]] uint64_t frames() const noexcept
    {
        return frames_;
    }

    /** Bytes of samples written, of all items. */
    [[nodiscard]] uint64_t data_length() const noexcept;

    /** Where the recording is. */
    [[nodiscard]] const std::filesystem::path &directory() const noexcept
    {
        return directory_;
    }

private:
    void write_documents(bool finished);

    std::filesystem::path directory_;
    session_description session_;
    std::vector<item_writer> items_;
    std::vector<capture> captures_;
    uint64_t frames_ = 0;
    uint64_t frames_lost_ = 0;
};

} // namespace vantor

#endif
