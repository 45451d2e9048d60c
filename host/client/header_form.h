/** @file
 * Reads frame headers that have the form of an earlier one, without building a JSON document.
 */
#ifndef VANTOR_HEADER_FORM_H
#define VANTOR_HEADER_FORM_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vantor/session.h"

namespace vantor
{

/** A member of a frame header whose value is read in place: of an item, or "missing" of the header itself. */
enum class header_member
{
    tick,
    temperature,
    data_saturated,
    calibration_needed,
    frame_delayed,
    data_valid,
    cca_value,
    cca_detected,
    tx_enabled,
    utc_s,
    utc_bound_s,
    missing
};

/**
 * The form of a frame header: the texts between the values that change from frame to frame. A header with the
 * same texts differs only in these values, so it says the same as its JSON document would.
 */
class header_form
{
public:
    /**
     * Learns the form of a header. If its form is unusual, no header will have it.
     *
     * @param header  JSON from which a frame was decoded
     * @param items   the items of this frame
     */
    void learn(std::string_view header, std::span<const frame_item> items);

    /**
     * Reads a header.
     *
     * @return whether it has the form and its values are in range; if not, the header must be parsed
     */
    [[nodiscard]] bool read(std::string_view header);

    /** The items of the header read last, without layouts and samples. Only valid if it could be read. */
    [[nodiscard]] const std::vector<frame_item> &items() const noexcept
    {
        return items_;
    }

    /** Number of frames that are missing before the frame, as its header says. Only valid if it could be
     * read. */
    [[nodiscard]] uint32_t missing() const noexcept
    {
        return missing_;
    }

    /** No header will have the form until the next one is learned. */
    void forget() noexcept
    {
        known_ = false;
    }

private:
    /** A value in a header. */
    struct field
    {
        size_t text = 0; /**< length of the text before it, after the previous value */
        size_t item = 0; /**< whose value it is; not for "missing" */
        header_member member = header_member::tick;
    };

    bool known_ = false;
    std::string texts_; /**< all texts without the values */
    std::vector<field> fields_;
    std::vector<frame_item> items_;
    uint32_t missing_ = 0;
};

} // namespace vantor

#endif
