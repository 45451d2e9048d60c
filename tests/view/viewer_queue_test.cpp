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
std::shared_ptr<const std::string> frame_of(size_t bytes, char content = 'x')
{
    return std::make_shared<const std::string>(bytes, content);
}

TEST(viewer_queue, returns_frames_in_their_order)
{
    viewer_queue queue;
    queue.add(frame_of(1, 'a'));
    queue.add(frame_of(1, 'b'));
    EXPECT_EQ(*queue.take(), "a");
    EXPECT_EQ(*queue.take(), "b");
    EXPECT_EQ(queue.take(), nullptr);
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
    EXPECT_EQ(*queue.take(), "c");
}

TEST(viewer_queue, drops_the_oldest_frames_beyond_their_bytes)
{
    viewer_queue queue({.frames = 100, .bytes = 10});
    queue.add(frame_of(5, 'a'));
    queue.add(frame_of(5, 'b'));
    EXPECT_EQ(queue.dropped(), 0U);
    queue.add(frame_of(1, 'c'));
    EXPECT_EQ(queue.dropped(), 1U);
    EXPECT_EQ(queue.take()->front(), 'b');
}

TEST(viewer_queue, has_room_for_one_frame_of_any_size)
{
    viewer_queue queue({.frames = 100, .bytes = 10});
    queue.add(frame_of(50, 'a'));
    EXPECT_EQ(queue.dropped(), 0U);
    queue.add(frame_of(60, 'b'));
    EXPECT_EQ(queue.dropped(), 1U);
    EXPECT_EQ(queue.take()->size(), 60U);
}

TEST(viewer_queue, does_not_count_frames_of_an_earlier_session_as_dropped)
{
    viewer_queue queue({.frames = 2, .bytes = 10});
    queue.add(frame_of(5));
    queue.clear();
    EXPECT_EQ(queue.take(), nullptr);
    queue.add(frame_of(5));
    queue.add(frame_of(5));
    EXPECT_EQ(queue.dropped(), 0U);
}

TEST(viewer_queue, passes_on_only_some_frames_without_counting_the_others)
{
    viewer_queue queue;
    queue.set_every(3);
    for (const char content : {'a', 'b', 'c', 'd', 'e'})
    {
        queue.add(frame_of(1, content));
    }
    EXPECT_EQ(*queue.take(), "a");
    EXPECT_EQ(*queue.take(), "d");
    EXPECT_EQ(queue.take(), nullptr);
    EXPECT_EQ(queue.dropped(), 0U);
}

} // namespace
} // namespace vantor
