/** @file
 * Batches of the example session.
 */
#include "example_batch.h"

#include "example_recording.h"
#include "server_script.h"

namespace vantor::test
{

std::string example_messages(uint32_t count, uint32_t first)
{
    std::string messages;
    for (uint32_t number = first; number < first + count; ++number)
    {
        messages += encode_frame(example_frame(number));
    }
    return messages;
}

batch_header example_header(uint64_t frames)
{
    batch_header header;
    header.site = "hall";
    header.board = "door";
    header.session = "2026-11-23T12:00:00.000Z-5f3a9c01";
    header.number = 17;
    header.first = 340;
    header.frames = frames;
    header.missing = 3;
    return header;
}

std::string example_batch(uint32_t frames)
{
    return encode_batch(example_header(frames), example_messages(frames));
}

batch_session example_content()
{
    return {.server = {{"server_version", "0.1.0"}, {"sensor", "k330"}},
            .configuration = example_session().configuration,
            .metadata = example_session().metadata};
}

} // namespace vantor::test
