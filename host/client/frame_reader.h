/** @file
 * Takes the frames of a session from the bytes of its link, without a JSON document for each.
 */
#ifndef VANTOR_FRAME_READER_H
#define VANTOR_FRAME_READER_H

#include <memory>
#include <optional>

#include "client/header_form.h"
#include "vantor/message_parser.h"
#include "vantor/sample_buffer.h"
#include "vantor/session.h"

namespace vantor
{

/**
 * Takes frames whose header has the form of an earlier one. All other messages stay in the parser, and a
 * frame that is incomplete becomes one of its messages if the caller asks for that.
 */
class frame_reader
{
public:
    /** @param metadata  of the session */
    explicit frame_reader(std::shared_ptr<const session_metadata> metadata);

    /** Takes the next frame; nothing if more bytes are needed, or the next message is to be parsed. */
    std::optional<frame> take(message_parser &parser);

    /**
     * Learns the form of a header.
     *
     * @param parser   has parsed it last
     * @param decoded  its frame
     */
    void learn(const message_parser &parser, const frame &decoded);

private:
    std::shared_ptr<const session_metadata> metadata_;
    header_form form_;
    std::shared_ptr<sample_pool> pool_ = std::make_shared<sample_pool>();
};

} // namespace vantor

#endif
