/** @file
 * Tests of the distances of the points of a sweep.
 */
#include <cmath>

#include <gmock/gmock.h>

#include "fake_server.h"
#include "vantor/session.h"

namespace vantor
{
namespace
{

using testing::Each;
using testing::SizeIs;

TEST(distances, follow_the_sub_sweeps)
{
    const auto session = test::example_session();
    auto metadata = decode_metadata(session.metadata);
    set_distances(metadata, session.configuration);
    const auto &distances = metadata.items[1].distances_m;
    ASSERT_THAT(distances, SizeIs(25));
    EXPECT_DOUBLE_EQ(distances[0], 0.15);
    EXPECT_DOUBLE_EQ(distances[9], 0.15 + 9 * 0.005);
    EXPECT_DOUBLE_EQ(distances[10], 0.5);
    EXPECT_DOUBLE_EQ(distances[24], 0.5 + 14 * 0.02);
    EXPECT_DOUBLE_EQ(metadata.items[2].distances_m[0], -0.1025);
}

TEST(distances, are_those_of_the_sub_sweep_of_an_item)
{
    const auto session = test::example_session();
    auto metadata = decode_metadata(session.metadata);
    set_distances(metadata, session.configuration);
    frame_item item;
    item.layout = &metadata.items[1];
    ASSERT_THAT(item.distances(1), SizeIs(15));
    EXPECT_DOUBLE_EQ(item.distances(1).front(), 0.5);
    EXPECT_DOUBLE_EQ(item.distances(1).back(), 0.5 + 14 * 0.02);
    EXPECT_THROW(static_cast<void>(item.distances(2)), std::out_of_range);
}

TEST(distances, are_nan_for_samples_outside_all_sub_sweeps)
{
    auto session = test::example_session();
    session.metadata["metadata"][1][0]["subsweep_data_offset"] = {1};
    session.metadata["metadata"][1][0]["subsweep_data_length"] = {2};
    auto metadata = decode_metadata(session.metadata);
    set_distances(metadata, session.configuration);
    const auto &distances = metadata.items[2].distances_m;
    EXPECT_TRUE(std::isnan(distances[0]));
    EXPECT_DOUBLE_EQ(distances[1], -0.1025);
    EXPECT_DOUBLE_EQ(distances[2], -0.1);
    EXPECT_TRUE(std::isnan(distances[3]));
}

TEST(distances, are_nan_if_the_configuration_does_not_give_them)
{
    auto metadata = decode_metadata(test::example_session().metadata);
    for (const auto *text : {"{}", R"({"groups":[[7]]})"})
    {
        set_distances(metadata, nlohmann::json::parse(text));
        for (const auto &layout : metadata.items)
        {
            EXPECT_THAT(layout.distances_m, SizeIs(layout.sweep_length));
            EXPECT_THAT(layout.distances_m, Each(testing::IsNan()));
        }
    }
}

} // namespace
} // namespace vantor
