/** @file
 * Tests of the frames that wait for a viewer.
 */
#include "view/viewer_queue.h"

#include <gtest/gtest.h>

namespace vantor
{
namespace
{

/** A frame of this many bytes. */
std::shared_ptr<const viewer_frame> frame_of(size_t bytes, char content = 'x', const std::string &truth = {})
{
    return std::make_shared<const viewer_frame>(viewer_frame{std::string(bytes, content), truth});
}

/** The next message, which must be a frame; null if there is none. */
std::shared_ptr<const std::string> take_frame(viewer_queue &queue)
{
    auto kind = view_message::text;
    auto message = queue.take(kind);
    EXPECT_TRUE(!message || kind == view_message::binary);
    return message;
}

/** The next message, which must be a text. */
std::string take_text(viewer_queue &queue)
{
    auto kind = view_message::binary;
    const auto message = queue.take(kind);
    EXPECT_EQ(kind, view_message::text);
    return message ? *message : std::string();
}

TEST(viewer_queue, returns_frames_in_their_order)
{
    viewer_queue queue;
    queue.add(frame_of(1, 'a'));
    queue.add(frame_of(1, 'b'));
    EXPECT_EQ(*take_frame(queue), "a");
    EXPECT_EQ(*take_frame(queue), "b");
    EXPECT_EQ(take_frame(queue), nullptr);
    EXPECT_EQ(queue.dropped(), 0U);
}

TEST(viewer_queue, drops_the_oldest_frames_beyond_their_number)
{
    viewer_queue queue({.frames = 3, .bytes = 1000});
    for (const char content : {'a', 'b', 'c', 'd', 'e'})
    {
        queue.add(frame_of(1, content));
    }
    EXPECT_EQ(queue.dropped(), 2U);
    EXPECT_EQ(*take_frame(queue), "c");
}

TEST(viewer_queue, drops_the_oldest_frames_beyond_their_bytes)
{
    viewer_queue queue({.frames = 100, .bytes = 10});
    queue.add(frame_of(5, 'a'));
    queue.add(frame_of(5, 'b'));
    EXPECT_EQ(queue.dropped(), 0U);
    queue.add(frame_of(1, 'c'));
    EXPECT_EQ(queue.dropped(), 1U);
    EXPECT_EQ(take_frame(queue)->front(), 'b');
}

TEST(viewer_queue, has_room_for_one_frame_of_any_size)
{
    viewer_queue queue({.frames = 100, .bytes = 10});
    queue.add(frame_of(50, 'a'));
    EXPECT_EQ(queue.dropped(), 0U);
    queue.add(frame_of(60, 'b'));
    EXPECT_EQ(queue.dropped(), 1U);
    EXPECT_EQ(take_frame(queue)->size(), 60U);
}

TEST(viewer_queue, does_not_count_frames_of_an_earlier_session_as_dropped)
{
    viewer_queue queue({.frames = 2, .bytes = 10});
    queue.add(frame_of(5));
    queue.clear();
    EXPECT_EQ(take_frame(queue), nullptr);
    queue.add(frame_of(5));
    queue.add(frame_of(5));
    EXPECT_EQ(queue.dropped(), 0U);
}

TEST(viewer_queue, sends_the_truth_of_a_frame_before_it)
{
    viewer_queue queue;
    queue.add(frame_of(1, 'a', "truth of a"));
    queue.add(frame_of(1, 'b'));
    EXPECT_EQ(take_text(queue), "truth of a");
    EXPECT_EQ(*take_frame(queue), "a");
    EXPECT_EQ(*take_frame(queue), "b");
    EXPECT_EQ(take_frame(queue), nullptr);
}

TEST(viewer_queue, sends_the_truth_of_the_frame_that_follows_dropped_ones)
{
    viewer_queue queue({.frames = 1, .bytes = 1000});
    queue.add(frame_of(1, 'a', "truth of a"));
    EXPECT_EQ(take_text(queue), "truth of a");
    queue.add(frame_of(1, 'b', "truth of b"));
    EXPECT_EQ(take_text(queue), "truth of b");
    EXPECT_EQ(*take_frame(queue), "b");
    EXPECT_EQ(queue.dropped(), 1U);
}

TEST(viewer_queue, passes_on_only_some_frames_without_counting_the_others)
{
    viewer_queue queue;
    queue.set_every(3);
    for (const char content : {'a', 'b', 'c', 'd', 'e'})
    {
        queue.add(frame_of(1, content));
    }
    EXPECT_EQ(*take_frame(queue), "a");
    EXPECT_EQ(*take_frame(queue), "d");
    EXPECT_EQ(take_frame(queue), nullptr);
    EXPECT_EQ(queue.dropped(), 0U);
}

} // namespace
} // namespace vantor
