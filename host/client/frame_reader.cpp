/** @file
 * Takes the frames of a session from the bytes of its link, without a JSON document for each.
 */
#include "client/frame_reader.h"

#include <utility>

namespace vantor
{

frame_reader::frame_reader(std::shared_ptr<const session_metadata> metadata) : metadata_(std::move(metadata))
{
}

std::optional<frame> frame_reader::take(message_parser &parser)
{
    if (const auto line = parser.peek_line(); line && form_.read(*line))
    {
        parser.begin_samples(sample_buffer(metadata_->frame_length() * sizeof(sample), pool_));
    }
    auto samples = parser.take_samples();
    if (!samples)
    {
        return std::nullopt;
    }
    auto taken = make_frame(metadata_, std::move(*samples), form_.items());
    taken.set_missing(form_.missing());
    return taken;
}

void frame_reader::learn(const message_parser &parser, const frame &decoded)
{
    form_.learn(parser.frame_header(), decoded.items());
}

} // namespace vantor
