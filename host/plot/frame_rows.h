/** @file
 * What the figures of an item need from its frame table.
 */
#ifndef VANTOR_FRAME_ROWS_H
#define VANTOR_FRAME_ROWS_H

#include "vantor/frame_table.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** Reads the frame table of an item line by line. */
class frame_rows
{
public:
    /** @param item  0 to recording.items().size() - 1 */
    frame_rows(const recording_reader &recording, size_t item) : table_(recording.open_table(item))
    {
    }

    /** Moves to the next frame. */
    void advance()
    {
        if (const auto row = table_.next())
        {
            seconds_ = row->seconds;
            valid_ = row->data_valid.value_or(true);
            saturated_ = row->data_saturated;
        }
    }

    /** The time of the frame. */
    [[nodiscard]] double seconds() const
    {
        return seconds_;
    }

    /** Whether its samples are measured echoes: the sensor may have listened for other transmitters instead.
     */
    [[nodiscard]] bool valid() const
    {
        return valid_;
    }

    /** Whether a sample reached full scale. */
    [[nodiscard]] bool saturated() const
    {
        return saturated_;
    }

private:
    frame_table table_;
    double seconds_ = 0.0;
    bool valid_ = true;
    bool saturated_ = false;
};

} // namespace vantor

#endif
