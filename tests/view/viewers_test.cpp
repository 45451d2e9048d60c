/** @file
 * Tests of what waits for viewers, and what they ask for.
 */
#include "view/viewers.h"

#include <future>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "raw_client.h"
#include "vantor/session.h"

namespace vantor
{
namespace
{

using ::testing::HasSubstr;

/** Viewers whose loop runs on a thread of its own, and whose requests wait. */
class running_viewers
{
public:
    running_viewers()
        : server_({}, "0123456789abcdef", loop_), all_(server_),
          thread_([this] { loop_.run_until([this] { return stopped_; }, event_loop::time_point::max()); })
    {
    }
    running_viewers(const running_viewers &) = delete;
    running_viewers &operator=(const running_viewers &) = delete;
    running_viewers(running_viewers &&) = delete;
    running_viewers &operator=(running_viewers &&) = delete;
    ~running_viewers()
    {
        loop_.post([this] { stopped_ = true; });
        thread_.join();
    }

    /** Calls a function on the loop, and waits until it has returned. */
    void on_loop(const std::function<void(viewers &)> &work)
    {
        std::promise<void> done;
        loop_.post([&] {
            work(all_);
            done.set_value();
        });
        done.get_future().wait();
    }

    [[nodiscard]] uint16_t port() const
    {
        return server_.port();
    }

    [[nodiscard]] std::string token() const
    {
        const auto url = server_.url();
        return url.substr(url.rfind('=') + 1);
    }

private:
    event_loop loop_;
    view_server server_;
    viewers all_;
    bool stopped_ = false; /**< used on the loop */
    std::thread thread_;
};

/** A viewer that has received the greeting. */
class open_viewer : public raw_client
{
public:
    explicit open_viewer(const running_viewers &all) : raw_client(all.port())
    {
        EXPECT_EQ(open_stream(all.token()).status, 101U);
        EXPECT_THAT(receive_message().payload, HasSubstr("\"viewer\":1"));
    }

    /** Sends a request with a text of a size. */
    void ask(size_t size)
    {
        send_frame(frame_kind::text, R"({"type":"record","name":")" + std::string(size, 'x') + "\"}");
    }

    /** The reason for which the connection is closed. */
    std::string close_reason()
    {
        raw_frame frame = receive_message();
        while (frame.kind != frame_kind::close && frame.kind != frame_kind::none)
        {
            frame = receive_message();
        }
        return frame.close_reason();
    }
};

/** A frame of one item with one sample. */
std::shared_ptr<const frame> frame_at(const std::optional<utc_time> &utc)
{
    auto metadata = std::make_shared<session_metadata>();
    metadata->items.resize(1);
    metadata->items[0].frame_length = 1;
    std::vector<frame_item> items(1);
    items[0].utc = utc;
    return std::make_shared<const frame>(
        make_frame(std::move(metadata), std::vector<sample>(1), std::move(items)));
}

/** The description of the first item in the next frame that a viewer receives. */
nlohmann::json item_received(raw_client &viewer)
{
    auto message = viewer.receive_message();
    while (message.kind != frame_kind::binary)
    {
        message = viewer.receive_message();
    }
    const auto header = message.payload.substr(0, message.payload.find('\n'));
    return nlohmann::json::parse(header).at("result_info").at(0).at(0);
}

constexpr const char *too_many = "Too many requests wait: send the next one after the answer.";

} // namespace

TEST(viewers, keep_eight_requests_of_a_viewer)
{
    running_viewers all;
    open_viewer viewer(all);
    for (int i = 0; i < 9; ++i)
    {
        viewer.ask(10);
    }
    EXPECT_EQ(viewer.close_reason(), too_many);
}

TEST(viewers, keep_requests_of_one_mebibyte)
{
    running_viewers all;
    open_viewer viewer(all);
    viewer.ask(600000);
    viewer.ask(600000);
    EXPECT_EQ(viewer.close_reason(), too_many);
}

TEST(viewers, keep_one_request_of_any_size)
{
    constexpr size_t size = (1U << 20U) - 100;
    running_viewers all;
    open_viewer viewer(all);
    viewer.ask(size);
    std::optional<viewer_request> request;
    while (!request)
    {
        all.on_loop([&](viewers &served) { request = served.next_request(); });
    }
    EXPECT_EQ(request->type, "record");
    EXPECT_EQ(request->document["name"].get<std::string>().size(), size);
}

TEST(viewers, close_one_that_leaves_many_bytes_unread)
{
    running_viewers all;
    open_viewer viewer(all);
    all.on_loop([](viewers &served) {
        // The first one is being sent, the second one waits, the third one is too much.
        for (int i = 0; i < 3; ++i)
        {
            served.send(1, {{"text", std::string(3U << 20U, 'x')}});
        }
    });
    EXPECT_EQ(viewer.close_reason(), "This viewer does not read its messages.");
}

TEST(viewers, receive_times_with_bounds_in_microseconds)
{
    using namespace std::chrono_literals;
    running_viewers all;
    open_viewer viewer(all);
    all.on_loop([](viewers &served) {
        constexpr std::chrono::sys_seconds begin(1'000'000'000s);
        served.add(frame_at(utc_time{begin + 123456789ns, 300us}));
        served.add(frame_at(utc_time{begin + 123456ns * 1000, 300us}));
        served.add(frame_at(std::nullopt));
    });
    const auto cut = item_received(viewer);
    EXPECT_EQ(cut.at("utc_s"), 1'000'000'000.123456);
    EXPECT_EQ(cut.at("utc_bound_s"), 0.000301);
    EXPECT_EQ(item_received(viewer).at("utc_bound_s"), 0.0003);
    const auto unknown = item_received(viewer);
    EXPECT_FALSE(unknown.contains("utc_s") || unknown.contains("utc_bound_s")) << unknown;
}

} // namespace vantor
