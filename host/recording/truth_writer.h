/** @file
 * Writes the truth of simulated sensors beside the samples of a recording.
 */
#ifndef VANTOR_TRUTH_WRITER_H
#define VANTOR_TRUTH_WRITER_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include <nlohmann/json.hpp>

#include "recording/output_file.h"
#include "vantor/arrived_frame.h"
#include "vantor/truth_table.h"

namespace vantor
{

/** Name of the file in a recording. */
inline constexpr const char *truth_file_name = "truth.jsonl";

/** Most bytes of a line of truth: a scene has 1.4 MB at most, 64 targets 13 kB. */
inline constexpr size_t most_truth_bytes = size_t{2} << 20;

/** The first line of a truth file: session_description::truth. */
std::string truth_head(const nlohmann::json &truth);

/** A line of a truth file. */
std::string truth_line(const recorded_truth &truth);

/** Writes the truth. Like samples, it is first appended and then committed. */
class truth_writer
{
public:
    /**
     * Creates the file.
     *
     * @param truth  session_description::truth
     * @throws recording_error if it cannot be created
     */
    truth_writer(const std::filesystem::path &path, const nlohmann::json &truth);

    /**
     * Appends a line for each item of some frames whose truth is known.
     *
     * @param first  the number of the first frame in the recording
     * @throws recording_error if it cannot be written, or require_whole() throws; rollback() then removes
     * what was written
     */
    void append(uint64_t first, std::span<const arrived_frame> block);

    /** Throws recording_error if somebody has shortened the file. */
    void require_whole() const;

    /** Commits what was appended last. */
    void commit() noexcept
    {
        length_ += appended_;
    }

    /** Removes what was appended since the last commit. */
    void rollback() noexcept
    {
        // A file that somebody has shortened must not become longer again.
        if (!file_.is_shorter_than(length_))
        {
            file_.truncate(length_);
        }
    }

    /**
     * Waits until everything is on the disk.
     *
     * @throws recording_error if that fails, or somebody has removed the file
     */
    void sync() const;

private:
    output_file file_;
    uint64_t length_ = 0;   /**< committed bytes */
    uint64_t appended_ = 0; /**< bytes of the last frames */
};

} // namespace vantor

#endif
