/** @file
 * Tests of the distances of the points of a sweep.
 */
#include "recording/point_distances.h"

#include <cmath>

#include <gmock/gmock.h>

#include "fake_server.h"

namespace vantor
{
namespace
{

using testing::SizeIs;

TEST(point_distances, follow_the_sub_sweeps)
{
    const auto session = test::example_session();
    const auto metadata = decode_metadata(session.metadata);
    const auto items = list_items(session.configuration);
    const auto distances = point_distances(metadata.items[1], items[1]);
    ASSERT_THAT(distances, SizeIs(25));
    EXPECT_DOUBLE_EQ(distances[0], 0.15);
    EXPECT_DOUBLE_EQ(distances[9], 0.15 + 9 * 0.005);
    EXPECT_DOUBLE_EQ(distances[10], 0.5);
    EXPECT_DOUBLE_EQ(distances[24], 0.5 + 14 * 0.02);
    EXPECT_DOUBLE_EQ(point_distances(metadata.items[2], items[2])[0], -0.1025);
}

TEST(point_distances, are_nan_for_samples_outside_all_sub_sweeps)
{
    item_layout layout;
    layout.sweep_length = 3;
    layout.base_step_length_m = 0.0025;
    layout.subsweeps = {{.offset = 1, .length = 2}};
    const auto distances = point_distances(layout, {.sensor_id = 1, .document = {}, .subsweeps = {{4, 2}}});
    EXPECT_TRUE(std::isnan(distances[0]));
    EXPECT_DOUBLE_EQ(distances[1], 0.01);
    EXPECT_DOUBLE_EQ(distances[2], 0.015);
}

} // namespace
} // namespace vantor
