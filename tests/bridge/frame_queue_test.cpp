/** @file
 * Tests of frames on their way to a host.
 */
#include "bridge/frame_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace vantor
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

/** A queue whose frames are sent to a host, after an answer of 10 bytes. */
class queue_test : public testing::Test
{
protected:
    /** Adds frames. */
    void push(const std::vector<std::string> &messages)
    {
        for (const auto &message : messages)
        {
            queue.push({.message = message, .session_name = "s", .session = nullptr});
        }
    }

    /** Sends the next frame; returns it. */
    std::string send()
    {
        const auto message = queue.take();
        sent += message.size();
        queue.note_sent(sent);
        return message;
    }

    /** Takes all frames. */
    std::vector<std::string> rest()
    {
        std::vector<std::string> found;
        while (!queue.empty())
        {
            found.push_back(queue.take());
        }
        return found;
    }

    frame_queue queue;
    uint64_t sent = 10;
};

TEST_F(queue_test, gives_frames_in_their_order)
{
    push({"aa", "bbb"});
    EXPECT_EQ(queue.front().message, "aa");
    EXPECT_THAT(rest(), ElementsAre("aa", "bbb"));
}

TEST_F(queue_test, puts_back_what_was_not_read_completely)
{
    push({"aa", "bbb", "cc", "d"});
    send();
    send();
    send();
    queue.put_back_unread(10 + 2 + 2);
    EXPECT_THAT(rest(), ElementsAre("bbb", "cc", "d"));
}

TEST_F(queue_test, puts_nothing_back_when_all_was_read)
{
    push({"aa", "bbb"});
    send();
    send();
    queue.put_back_unread(15);
    EXPECT_THAT(rest(), IsEmpty());
}

TEST_F(queue_test, puts_a_frame_back_whose_sending_failed)
{
    push({"aa", "bbb"});
    send();
    queue.take();
    queue.note_sent(sent + 3);
    queue.put_back_unread(sent + 2);
    EXPECT_THAT(rest(), ElementsAre("bbb"));
}

TEST_F(queue_test, puts_a_frame_back_only_once)
{
    push({"aa", "bbb"});
    send();
    queue.put_back_unread(10);
    EXPECT_EQ(queue.take(), "aa");
    queue.note_sent(30);
    queue.put_back_unread(30);
    EXPECT_THAT(rest(), ElementsAre("bbb"));
}

TEST_F(queue_test, keeps_as_much_as_a_link_may_hold)
{
    const std::string large(frame_queue::most_unread / 4, 'x');
    push(std::vector<std::string>(10, large));
    for (int i = 0; i < 10; ++i)
    {
        send();
    }
    // Five of them are larger than that only together.
    queue.put_back_unread(0);
    EXPECT_EQ(rest().size(), 5U);
}

} // namespace
} // namespace vantor
