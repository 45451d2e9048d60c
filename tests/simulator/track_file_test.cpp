/** @file
 * Tracks of targets from files with comma-separated values.
 */
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <map>
#include <string>

#include "scene/sight.h"
#include "scene_text.h"

namespace
{

/** Files by their names. */
using files = std::map<std::string, std::string>;

/** Reads a file from the map that is the context. */
zet_simulator_file_t read_file(void *context, const char *name, char *error, size_t error_size)
{
    const auto &all = *static_cast<const files *>(context);
    const auto found = all.find(name);
    if (found == all.end())
    {
        std::strncpy(error, "there is none", error_size);
        return {nullptr, 0};
    }
    return {found->second.c_str(), found->second.size()};
}

/** Reads a scene with files; returns why it is refused, or an empty text. */
std::string read_scene(const std::string &text, files all, zet_simulator_scene_t &scene)
{
    std::array<char, 1024> error = {};
    const zet_simulator_scene_source_t source = {text.c_str(), text.size(), 0, nullptr, read_file, &all};
    const bool valid = zet_simulator_scene_from_json(&source, &scene, error.data(), error.size());
    EXPECT_EQ(valid, error.front() == '\0');
    return error.data();
}

/** A scene with one target. */
std::string target_with(const std::string &fields)
{
    return R"({"targets": [{"strength_m2": 1, )" + fields + "}]}";
}

const std::string with_file = target_with(R"("track_file": "walk.csv")");

/** Why a file is refused. */
std::string refusal_of_file(const std::string &content)
{
    zet_simulator_scene_t scene = {};
    return read_scene(with_file, {{"walk.csv", content}}, scene);
}

TEST(track_file, is_the_same_as_a_track_in_the_scene)
{
    const auto expect_same = [](const std::string &content, const std::string &track) {
        zet_simulator_scene_t scene = {};
        EXPECT_EQ(read_scene(with_file, {{"walk.csv", content}}, scene), "");
        EXPECT_EQ(text_of(scene), text_of(scene_of(target_with("\"track\": " + track))));
    };
    expect_same("time_s,distance_m\n0,2\n1.5,2.25\n1e1,-3\n",
                R"([{"time_s": 0, "distance_m": 2}, {"time_s": 1.5, "distance_m": 2.25},
                    {"time_s": 10, "distance_m": -3}])");
    expect_same("time_s,x_m,y_m\n0,1,2\n1,-1,2.5",
                R"([{"time_s": 0, "x_m": 1, "y_m": 2}, {"time_s": 1, "x_m": -1, "y_m": 2.5}])");
    // As spreadsheets on other systems write it.
    expect_same(
        "\xEF\xBB\xBFtime_s,x_m,y_m,z_m\r\n 0 , 1, 2,\t3\r\n\r\n1,1,2,4\r\n\r\n",
        R"([{"time_s": 0, "x_m": 1, "y_m": 2, "z_m": 3}, {"time_s": 1, "x_m": 1, "y_m": 2, "z_m": 4}])");
}

TEST(track_file, is_added_to_the_place_of_a_target)
{
    zet_simulator_scene_t scene = {};
    ASSERT_EQ(read_scene(R"({"targets": [{"strength_m2": 1, "track_file": "a"},
                            {"strength_m2": 1, "y_m": 2, "track_file": "b"}]})",
                         {{"a", "time_s,distance_m\n0,1\n2,3"}, {"b", "time_s,x_m,y_m\n0,0,1\n4,0,3"}},
                         scene),
              "");
    EXPECT_EQ(zet_simulator::scene_sight(scene, scene.targets[0], 1, 1.0).distance_m, 2.0);
    EXPECT_EQ(zet_simulator::scene_sight(scene, scene.targets[1], 1, 2.0).distance_m, 4.0);
}

TEST(track_file, can_have_as_many_keyframes_as_a_scene)
{
    std::string content = "time_s,distance_m\n";
    for (int i = 0; i < 8192; ++i)
    {
        content += std::to_string(i) + "," + std::to_string(i % 7) + "\n";
    }
    zet_simulator_scene_t scene = {};
    ASSERT_EQ(read_scene(with_file, {{"walk.csv", content}}, scene), "");
    ASSERT_EQ(scene.keyframe_count, 8192U);
    for (const int i : {0, 1, 2, 4095, 4096, 8190, 8191})
    {
        EXPECT_EQ(zet_simulator::scene_sight(scene, scene.targets[0], 1, i).distance_m, i % 7) << i;
    }
    EXPECT_EQ(zet_simulator::scene_sight(scene, scene.targets[0], 1, 1.0e5).distance_m, 8191 % 7);
    EXPECT_EQ(
        refusal_of_file(content + "8192,1\n"),
        "targets[0].track_file is \"walk.csv\", of which line 8194 has a keyframe too many, but must have at "
        "most 8192 in all targets together (line 1, column 47)");
}

TEST(track_file, that_is_wrong_is_refused_with_its_line)
{
    const std::string begin = "targets[0].track_file is \"walk.csv\", ";
    const std::string end = " (line 1, column 47)";
    const std::string headers = "time_s,distance_m or time_s,x_m,y_m or time_s,x_m,y_m,z_m";
    EXPECT_EQ(refusal_of_file(""), begin + "of which line 1 has \"\", but must have " + headers + end);
    EXPECT_EQ(refusal_of_file("0,1\n"),
              begin + "of which line 1 has \"0,1\", but must have " + headers + end);
    EXPECT_EQ(refusal_of_file("time_s,x_m\n"),
              begin + "of which line 1 has \"time_s,x_m\", but must have " + headers + end);
    EXPECT_EQ(refusal_of_file("time_s,distance_m\n\n"),
              begin + "which has no keyframes, but must have at least one" + end);
    const std::string good = "time_s,distance_m\n1,2\n\n";
    for (const auto &[row, fault] : {
             std::pair("2", "fewer values, but must have time_s,distance_m"),
             std::pair("2,3,4", "more values, but must have time_s,distance_m"),
             std::pair("2,", "\"\" as distance_m, but must have a number from -1000 to 1000"),
             std::pair("2,far", "\"far\" as distance_m, but must have a number from -1000 to 1000"),
             std::pair("2,nan", "\"nan\" as distance_m, but must have a number from -1000 to 1000"),
             std::pair("2,1000.01", "\"1000.01\" as distance_m, but must have a number from -1000 to 1000"),
             std::pair("2,1e999", "\"1e999\" as distance_m, but must have a number from -1000 to 1000"),
             std::pair("-1,2", "\"-1\" as time_s, but must have a number from 0 to 1000000"),
             std::pair("2 s,2", "\"2 s\" as time_s, but must have a number from 0 to 1000000"),
             std::pair("\xFF,2", "\"?\" as time_s, but must have a number from 0 to 1000000"),
             std::pair("1,2", "1 as time_s, but must have more than that of the keyframe before, 1"),
             std::pair("0.5,2", "0.5 as time_s, but must have more than that of the keyframe before, 1"),
         })
    {
        EXPECT_EQ(refusal_of_file(good + row + "\n3,4"), begin + "of which line 4 has " + fault + end) << row;
    }
}

TEST(track_file, that_does_not_fit_to_its_target_is_refused)
{
    const auto refusal = [](const std::string &fields) {
        zet_simulator_scene_t scene = {};
        return read_scene(target_with(fields),
                          {{"walk", "time_s,distance_m\n0,1"}, {"space", "time_s,x_m,y_m\n0,1,1"}}, scene);
    };
    EXPECT_EQ(refusal(R"("x_m": 0, "track_file": "walk")"),
              "targets[0].track_file is \"walk\", of which line 1 has time_s,distance_m, but must have "
              "time_s,x_m,y_m "
              "or time_s,x_m,y_m,z_m, because the target has a place (line 1, column 57)");
    EXPECT_EQ(
        refusal(R"("distance_m": 1, "track_file": "space")"),
        "targets[0].distance_m is 1, but must be absent, because the target has a place (x_m, y_m, z_m) "
        "(line 1, column 47)");
    EXPECT_EQ(refusal(R"("track": [], "track_file": "walk")"),
              "targets[0].track_file is given beside track, but only one of them may be (line 1, column 60)");
    EXPECT_EQ(refusal(R"("track_file": "run")"),
              "targets[0].track_file is \"run\", but there is none (line 1, column 47)");
    EXPECT_EQ(refusal(R"("track_file": 3)"),
              "targets[0].track_file is 3, but must be the name of a file (line 1, column 47)");
    EXPECT_EQ(refusal_of(with_file),
              "targets[0].track_file is \"walk.csv\", but must be absent, because no files are "
              "read here (line 1, column 47)");
}

} // namespace
