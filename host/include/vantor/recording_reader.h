/** @file
 * Reads a recording.
 */
#ifndef VANTOR_RECORDING_READER_H
#define VANTOR_RECORDING_READER_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "vantor/capture.h"
#include "vantor/frame_table.h"
#include "vantor/recorded_item.h"
#include "vantor/session_description.h"
#include "vantor/truth_table.h"

namespace vantor
{

class input_file;
struct recording_documents;

/**
 * A recording, complete or not. Frames are read one by one: memory does not grow with their number. Not
 * thread-safe: use an object from one thread at a time.
 */
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
    recording_reader(const recording_reader &) = delete;
    recording_reader &operator=(const recording_reader &) = delete;
    recording_reader(recording_reader &&other) noexcept;
    recording_reader &operator=(recording_reader &&other) noexcept;
    ~recording_reader();

    /** The description of the session; owned by this object. */
    [[nodiscard]] const session_description &session() const noexcept;

    /** The items, in the order of the session metadata; owned by this object. */
    [[nodiscard]] const std::vector<recorded_item> &items() const noexcept;

    /**
     * The parts without gaps, in the order of time; the first one begins at frame 0. A recording whose
     * program was killed does not list its gaps, except those between segments.
     */
    [[nodiscard]] std::vector<capture> captures() const;

    /** Number of frames whose samples and row are complete in every item. */
    [[nodiscard]] uint64_t frames() const noexcept
    {
        return frames_;
    }

    /** Whether the recording was finished: its documents list all gaps. */
    [[nodiscard]] bool finished() const;

    /** The directory of the recording. */
    [[nodiscard]] const std::filesystem::path &directory() const noexcept;

    /** Sets a function that is called after each read_frame() and read_frames(), with the number of frames
     * that have been read so far. */
    void on_read(std::function<void(uint64_t)> handler);

    /**
     * Reads the samples of one item in one frame.
     *
     * @param item     0 to items().size() - 1
     * @param number   0 to frames() - 1
     * @param samples  buffer that receives the samples, sweep after sweep
     * @throws bad_recording if the file cannot be read, or does not have the frame
     * @throws std::out_of_range if there is no such item
     */
    void read_frame(size_t item, uint64_t number, std::vector<sample> &samples);

    /**
     * Reads the samples of one item in several frames, one after the other: faster than one by one if they
     * are short.
     *
     * @param item     0 to items().size() - 1
     * @param first    the first of the frames
     * @param count    their number; first + count is at most frames()
     * @param samples  buffer that receives the samples
     * @throws bad_recording if the file cannot be read, or does not have the frames
     * @throws std::out_of_range if there is no such item
     */
    void read_frames(size_t item, uint64_t first, uint64_t count, std::vector<sample> &samples);

    /**
     * Opens the frame table of an item: the time, temperature and flags of each frame, from the first one.
     *
     * @param item  0 to items().size() - 1
     * @throws bad_recording if it cannot be read
     * @throws std::out_of_range if there is no such item
     */
    [[nodiscard]] frame_table open_table(size_t item) const;

    /** Whether the truth of simulated sensors was recorded. */
    [[nodiscard]] bool has_truth() const noexcept;

    /**
     * Opens the truth: what the sensors should have found, frame by frame.
     *
     * @throws bad_recording if there is none, or it cannot be read
     */
    [[nodiscard]] truth_table open_truth() const;

private:
    std::unique_ptr<const recording_documents> documents_; /**< null only if moved from */
    std::vector<input_file> data_;
    uint64_t frames_ = 0;
    uint64_t reads_ = 0;
    std::function<void(uint64_t)> on_read_;
};

} // namespace vantor

#endif
