/** @file
 * Reads the frame table of an item, which has one line per frame.
 */
#ifndef VANTOR_FRAME_TABLE_H
#define VANTOR_FRAME_TABLE_H

#include <cstdint>
#include <filesystem>
#include <optional>

#include "recording/input_file.h"

namespace vantor
{

/** One line of a frame table. */
struct frame_row
{
    double seconds = 0.0; /**< since the item's first frame */
    uint32_t tick = 0;
    int temperature = 0;
    bool data_saturated = false;
    bool frame_delayed = false;
    bool calibration_needed = false;
    std::optional<bool> data_valid;
    std::optional<double> cca_value;
    std::optional<bool> cca_detected;
    std::optional<bool> tx_enabled;
};

/** A frame table, read line by line. */
class frame_table
{
public:
    /**
     * Opens a table.
     *
     * @throws bad_recording if it cannot be read or does not have the expected columns
     */
    explicit frame_table(std::filesystem::path path);

    /**
     * Reads the next line.
     *
     * @return the line, or nothing at the end of the table or if the last line is incomplete
     * @throws bad_recording if a line does not describe a frame
     */
    std::optional<frame_row> next();

    /** Number of bytes up to the end of the row that next() returned last. */
    [[nodiscard]] uint64_t position() const noexcept
    {
        return lines_.position();
    }

    /** Number of bytes after the row that next() returned last. */
    [[nodiscard]] uint64_t rest() const
    {
        return lines_.file().size() - position();
    }

private:
    std::filesystem::path path_;
    line_reader lines_;
    uint64_t rows_ = 0;
};

} // namespace vantor

#endif
