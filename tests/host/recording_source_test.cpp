/** @file
 * Tests of describing where a recording comes from.
 */
#include "vantor/recording_source.h"

#include <gmock/gmock.h>

#include "temporary_directory.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** The source of a recording from an address, of a server that reports no board. */
ordered_json source_of(const std::string &address)
{
    return describe_source(parse_address(address), {});
}

TEST(recording_source, has_the_address_and_the_board)
{
    server_info server;
    server.board = {
        .name = "garage", .id = "7", .reset_cause = "power on", .last_fault = {}, .sensors = "real"};
    EXPECT_EQ(describe_source(parse_address("serial:/dev/ttyACM0@921600"), server),
              ordered_json({{"address", "serial:/dev/ttyACM0@921600"},
                            {"board", {{"name", "garage"}, {"id", "7"}, {"sensors", "real"}}}}));
    EXPECT_EQ(source_of("tcp:[::1]:80"), ordered_json({{"address", "tcp:[::1]:80"}}));
}

TEST(recording_source, has_scene_seed_and_clock_of_a_simulated_server)
{
    EXPECT_EQ(source_of("sim:")["simulator"],
              ordered_json({{"scene", "default"}, {"seed", 1}, {"clock", "real"}}));
    const test::temporary_directory directory;
    const auto scene = directory.write("my scene.json", R"({"targets": []})").string();
    EXPECT_EQ(
        source_of("sim:--seed=18446744073709551615 --clock virtual --scene \"" + scene + "\"")["simulator"],
        ordered_json({{"scene", scene},
                      {"seed", 18446744073709551615U},
                      {"clock", "virtual"},
                      {"scene_document", {{"targets", ordered_json::array()}}}}));
}

TEST(recording_source, can_be_written_whatever_the_arguments_are)
{
    const auto source = source_of("sim:--scene /missing\xff --seed x\xff --clock");
    EXPECT_EQ(source["simulator"], ordered_json({{"scene", "/missing\ufffd"},
                                                 {"seed", "x\ufffd"},
                                                 {"clock", "real"},
                                                 {"scene_document", nullptr}}));
    EXPECT_NO_THROW(static_cast<void>(source.dump()));
}

} // namespace
} // namespace vantor
