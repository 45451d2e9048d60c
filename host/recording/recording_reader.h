/** @file
 * Reads a recording.
 */
#ifndef VANTOR_RECORDING_READER_H
#define VANTOR_RECORDING_READER_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "recording/input_file.h"
#include "recording/recorded_captures.h"
#include "recording/recording_documents.h"

namespace vantor
{

/** A recording, complete or not. */
class recording_reader
{
public:
    /**
     * Opens a recording.
     *
     * @param place  its directory, or any of its SigMF documents
     * @throws bad_recording if there is none, a document is damaged, or a file is missing
     */
    explicit recording_reader(const std::filesystem::path &place);

    /** The description of the session. */
    [[nodiscard]] const session_description &session() const noexcept
    {
        return documents_.session;
    }

    /** The items, in the order of the session metadata. */
    [[nodiscard]] const std::vector<recorded_item> &items() const noexcept
    {
        return documents_.items;
    }

    /** Number of frames whose samples and row are complete in every item. */
    [[nodiscard]] uint64_t frames() const noexcept
    {
        return frames_;
    }

    /** Whether the recording was finished: its documents list all gaps. */
    [[nodiscard]] bool finished() const;

    /** The captures that its documents list; without gaps if it was not finished. */
    [[nodiscard]] std::vector<capture> captures() const
    {
        return read_captures(documents_);
    }

    /** The directory of the recording. */
    [[nodiscard]] const std::filesystem::path &directory() const noexcept
    {
        return documents_.directory;
    }

    /** Sets a function that is called after each read_frame(), with the number of calls so far. */
    void on_read(std::function<void(uint64_t)> handler)
    {
        on_read_ = std::move(handler);
    }

    /**
     * Reads the samples of one item in one frame.
     *
     * @param item     0 to items().size() - 1
     * @param number   0 to frames() - 1
     * @param samples  buffer that receives the samples
     * @throws bad_recording if the file cannot be read
     */
    void read_frame(size_t item, uint64_t number, std::vector<sample> &samples);

private:
    recording_documents documents_;
    std::vector<input_file> data_;
    uint64_t frames_ = 0;
    uint64_t reads_ = 0;
    std::function<void(uint64_t)> on_read_;
};

} // namespace vantor

#endif
