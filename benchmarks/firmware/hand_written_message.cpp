/** @file
 * The frame message written by hand.
 */
#include "hand_written_message.h"

#include <charconv>
#include <cstring>

namespace
{

/** Builds a line in a buffer that is large enough for it. */
struct line_t
{
    char *end;

    template <uint32_t size> void text(const char (&literal)[size])
    {
        std::memcpy(end, literal, size - 1);
        end += size - 1;
    }
    template <typename number_t> void number(number_t value)
    {
        end = std::to_chars(end, end + 11, value).ptr;
    }
};

char buffer[9472];

} // namespace

void hand_written_message(write_data_function_t *write, const message_shape_t &shape, const void *samples)
{
    line_t line = {buffer};
    line.text("{\"result_info\":[");
    for (uint32_t group = 0; group < shape.groups; ++group)
    {
        if (group > 0)
        {
            line.text(",");
        }
        line.text("[");
        for (uint32_t item = 0; item < shape.items_per_group; ++item)
        {
            if (item > 0)
            {
                line.text(",");
            }
            line.text("{\"tick\":");
            line.number(shape.tick);
            line.text(",\"data_saturated\":false,\"temperature\":");
            line.number(shape.temperature);
            line.text(",\"calibration_needed\":false,\"frame_delayed\":false");
            if (shape.is_assessed)
            {
                line.text(",\"data_valid\":false,\"cca_value\":");
                line.text(assessed_text);
                line.text(",\"cca_detected\":true,\"tx_enabled\":false");
            }
            line.text("}");
        }
        line.text("]");
    }
    line.text("],\"status\":\"ok\",\"payload_size\":");
    line.number(shape.groups * shape.items_per_group * shape.samples_per_item * 4U);
    line.text("}\n");
    write(buffer, static_cast<uint32_t>(line.end - buffer));
    for (uint32_t i = 0; i < shape.groups * shape.items_per_group; ++i)
    {
        write(samples, shape.samples_per_item * 4U);
    }
}
