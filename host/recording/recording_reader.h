/** @file
 * Reads a recording.
 */
#ifndef VANTOR_RECORDING_READER_H
#define VANTOR_RECORDING_READER_H

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "configuration/configuration.h"
#include "recording/sigmf.h"
#include "vantor/session.h"

namespace vantor
{

/** One item of a recording. */
struct recorded_item
{
    std::string name; /**< name of its files, without extension */
    item_layout layout;
    item_configuration configuration;
    std::vector<double> distances; /**< distance of each point of a sweep, in metres */
    nlohmann::json document;       /**< its SigMF metadata */
};

/** A recording, complete or not. */
class recording_reader
{
public:
    /**
     * Opens a recording.
     *
     * @param place  its directory, or any of its SigMF documents
     * @throws bad_recording if there is none, or its documents are inconsistent
     */
    explicit recording_reader(const std::filesystem::path &place);

    /** The description of the session. */
    [[nodiscard]] const session_description &session() const noexcept
    {
        return session_;
    }

    /** The items, in the order of the session metadata. */
    [[nodiscard]] const std::vector<recorded_item> &items() const noexcept
    {
        return items_;
    }

    /** Number of frames that are complete in every item. */
    [[nodiscard]] uint64_t frames() const noexcept
    {
        return frames_;
    }

    /** The directory of the recording. */
    [[nodiscard]] const std::filesystem::path &directory() const noexcept
    {
        return directory_;
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
    void open_items();
    [[nodiscard]] uint64_t count_frames() const;

    std::filesystem::path directory_;
    session_description session_;
    std::vector<recorded_item> items_;
    std::vector<std::ifstream> data_;
    uint64_t frames_ = 0;
    uint64_t reads_ = 0;
    std::function<void(uint64_t)> on_read_;
};

} // namespace vantor

#endif
