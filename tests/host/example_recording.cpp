/** @file
 * A recording of the example session.
 */
#include "example_recording.h"

#include "fake_server.h"
#include "vantor/recording_writer.h"

namespace vantor::test
{

frame example_frame(uint32_t number, const nlohmann::json &flags)
{
    message received;
    received.header = example_session().frame_header(number);
    received.header["result_info"][0][0].update(flags);
    const auto payload = example_session().frame_payload(number);
    const auto bytes = std::as_bytes(std::span(payload));
    received.payload.assign(bytes.begin(), bytes.end());
    return decode_frame(
        received, std::make_shared<const session_metadata>(decode_metadata(example_session().metadata)));
}

frame example_frame_at(uint32_t number, const utc_time &utc)
{
    const auto plain = example_frame(number);
    std::vector<frame_item> items(plain.items().begin(), plain.items().end());
    items.front().utc = utc;
    return make_frame(std::make_shared<const session_metadata>(plain.metadata()),
                      std::vector<sample>(plain.samples().begin(), plain.samples().end()), std::move(items));
}

example_frames::example_frames(uint32_t first, uint32_t count)
{
    for (uint32_t number = first; number < first + count; ++number)
    {
        frames_.push_back(example_frame(number));
    }
    for (const auto &added : frames_)
    {
        arrived_.push_back({.what = &added, .arrival = std::chrono::system_clock::now()});
    }
}

session_description example_description()
{
    server_info server;
    server.server_version = "0.1.0";
    server.protocol_version = 1;
    server.sensor = "k330";
    server.ticks_per_second = 1000000.0;
    return {.configuration = example_session().configuration,
            .metadata = decode_metadata(example_session().metadata),
            .server = server,
            .source = nullptr};
}

void write_example_recording(const std::filesystem::path &directory, uint32_t frames)
{
    recording_writer writer(directory, example_description());
    for (uint32_t number = 0; number < frames; ++number)
    {
        writer.add(example_frame(number));
    }
    writer.finish();
}

} // namespace vantor::test
