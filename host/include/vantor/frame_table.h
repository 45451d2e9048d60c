/** @file
 * Reads the frame table of an item, which has one line per frame.
 */
#ifndef VANTOR_FRAME_TABLE_H
#define VANTOR_FRAME_TABLE_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>

#include "vantor/utc_time.h"

namespace vantor
{

/** One line of a frame table: what is known about one frame of an item. */
struct frame_row
{
    double seconds = 0.0;            /**< since the item's first frame */
    uint32_t tick = 0;               /**< time of the measurement; wraps around */
    int temperature = 0;             /**< relative, in degrees Celsius; use it only to compare */
    bool data_saturated = false;     /**< a sample reached full scale */
    bool frame_delayed = false;      /**< the frame was read late */
    bool calibration_needed = false; /**< the sensor asks for a new calibration */
    std::optional<bool> data_valid;  /**< with clear-channel assessment: false if the channel was busy */
    std::optional<double> cca_value; /**< with clear-channel assessment and debug, like the next two */
    std::optional<bool> cca_detected;
    std::optional<bool> tx_enabled;
    std::optional<utc_time> utc; /**< time of the measurement; no value if it was not known */
};

class line_reader;

/** A frame table, read line by line from any line on. */
class frame_table
{
public:
    /**
     * Opens a table.
     *
     * @throws bad_recording if it cannot be read or does not have the expected columns
     */
    explicit frame_table(std::filesystem::path path);
    frame_table(const frame_table &) = delete;
    frame_table &operator=(const frame_table &) = delete;
    frame_table(frame_table &&other) noexcept;
    frame_table &operator=(frame_table &&other) noexcept;
    ~frame_table();

    /**
     * Reads the next line.
     *
     * @return the line, or nothing at the end of the table or if the last line is incomplete
     * @throws bad_recording if a line does not describe a frame
     */
    std::optional<frame_row> next();

    /**
     * Reads a line that must exist, because the recording has its frame.
     *
     * @throws bad_recording if there is none
     */
    frame_row require();

    /**
     * Continues with the line of a frame, in a time that hardly depends on the size of the table. If there is
     * none, next() returns nothing, or throws because the lines are not numbered one after the other.
     *
     * @param frame  its number, from 0
     * @throws bad_recording if the table cannot be read
     */
    void seek(uint64_t frame);

    /** The first line: the names of the columns, which were fewer in earlier versions. */
    [[nodiscard]] std::string_view head() const noexcept
    {
        return head_;
    }

    /** Number of bytes up to the end of the row that next() returned last. */
    [[nodiscard]] uint64_t position() const noexcept;

    /** Number of bytes after the row that next() returned last. */
    [[nodiscard]] uint64_t rest() const;

private:
    std::filesystem::path path_;
    std::unique_ptr<line_reader> lines_; /**< null only if moved from */
    std::string_view head_;
    uint64_t rows_ = 0;
};

} // namespace vantor

#endif
