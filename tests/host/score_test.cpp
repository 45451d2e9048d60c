/** @file
 * Tests of the comparison of detections with the truth; the expected figures are computed by hand.
 */
#include "score/score.h"

#include <cmath>
#include <stdexcept>

#include <gmock/gmock.h>

#include "command_outcome.h"
#include "example_recording.h"
#include "example_truth.h"
#include "temporary_directory.h"
#include "vantor/recording_error.h"
#include "vantor/recording_writer.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using testing::HasSubstr;

/** What the first item of a frame should have found. */
struct first_item
{
    std::vector<double> distances_m; /**< of its targets */
    bool valid = true;               /**< whether its samples are */
};

/** The name of a target that stands alone. */
thing_name target(size_t number)
{
    return {.is_body = false, .number = number};
}

/** The name of a body. */
thing_name body(size_t number)
{
    return {.is_body = true, .number = number};
}

/** A recording of the example session, whose first item measures 20 points from 0.25 m to 0.44 m. */
class score_test : public testing::Test
{
protected:
    /** Records frames; only the truth of the first item is known. @p change  changes a target */
    void write(
        const std::vector<first_item> &frames,
        const std::function<void(target_truth &)> &change = [](target_truth &) {})
    {
        recording_writer writer(path, test::description_with_truth());
        for (uint32_t number = 0; number < frames.size(); ++number)
        {
            const auto &item = frames[number];
            auto received = test::example_frame(number, {{"data_valid", item.valid}});
            frame_truth truth;
            truth.items.resize(3);
            truth.items[0] = test::truth_with(1, received.items()[0].tick, item.distances_m);
            std::ranges::for_each(truth.items[0]->targets, change);
            received.set_truth(std::make_shared<const frame_truth>(truth));
            writer.add(received);
        }
        writer.finish();
    }

    /** Records a frame with targets at 0.25, 0.28, 0.31 … metres, of which these are the bodies, and which
     * move with these velocities. */
    void write_bodies(const std::vector<size_t> &bodies, const std::vector<double> &velocities)
    {
        std::vector<double> distances_m;
        for (size_t i = 0; i < bodies.size(); ++i)
        {
            distances_m.push_back(0.25 + 0.03 * static_cast<double>(i));
        }
        write({{distances_m}}, [&](target_truth &each) {
            each.body = bodies.at(each.target);
            each.velocity_m_s = velocities.at(each.target);
        });
    }

    /** The score of the first item. */
    item_score score(const std::string &detections, const score_settings &settings) const
    {
        const recording_reader recording(path);
        const auto file = directory.write("detections.csv", detections);
        return score_detections(recording, read_detections(file, recording), settings).at(0);
    }

    /** The reason why a file of detections is refused. */
    std::string refusal(const std::string &detections) const
    {
        try
        {
            score(detections, {});
        }
        catch (const detections_error &failure)
        {
            return failure.what();
        }
        return "";
    }

    /** Runs the command. */
    test::outcome run(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {"score", path.string(), (directory / "detections.csv").string()});
        return test::run(options);
    }

    test::temporary_directory directory;
    std::filesystem::path path = directory / "out";
};

constexpr const char *two_detected = "frame,group,item,distance_m,velocity_m_s\n"
                                     "0,1,1,0.31,0.3\n"
                                     "0,1,1,0.44,\n"
                                     "0,1,1,0.34,0\n";

TEST_F(score_test, counts_targets_false_alarms_and_errors)
{
    write({{{0.30, 0.40}}, {{0.30}}});
    const auto found = score(two_detected, {.gate_m = 0.05});
    EXPECT_EQ(found.frames, 2U);
    EXPECT_EQ(found.points, 2 * 20U);
    EXPECT_EQ(found.detections, 3U);
    EXPECT_EQ(found.false_alarms, 1U);
    EXPECT_EQ(found.ignored, 0U);
    const auto &first = found.things.at(target(0));
    EXPECT_EQ(first.due, 2U);
    EXPECT_EQ(first.detected, 1U);
    EXPECT_NEAR(*first.distance.mean(), 0.01, 1e-12);
    EXPECT_NEAR(*first.velocity.rms(), 0.3 - 0.1, 1e-12);
    const auto all = found.all();
    EXPECT_NEAR(*all.probability(), 2.0 / 3.0, 1e-12);
    EXPECT_NEAR(*all.distance.mean(), (0.01 + 0.04) / 2.0, 1e-12);
    EXPECT_NEAR(*all.distance.rms(), std::sqrt((0.0001 + 0.0016) / 2.0), 1e-12);
    EXPECT_EQ(all.velocity.count, 1U);
}

TEST_F(score_test, accepts_lines_in_any_order_and_other_columns)
{
    write({{{0.30}}, {{0.40}}, {{0.35}}});
    const auto found = score("level,distance_m,item,group,frame\r\n9,0.36,1,1,2\r\n\r\n8,0.30,1,1,0\r\n", {});
    EXPECT_EQ(found.all().detected, 2U);
    EXPECT_EQ(found.false_alarms, 0U);
    EXPECT_EQ(score("\xef\xbb\xbf"
                    "frame,group,item,distance_m\n1,1,1,0.4\n",
                    {})
                  .all()
                  .detected,
              1U);
}

TEST_F(score_test, matches_the_closest_pairs_first)
{
    write({{{0.30, 0.34}}});
    // 0.33 is 0.01 from the second target, so that only 0.26 is left for the first one.
    const auto found = score("frame,group,item,distance_m\n0,1,1,0.33\n0,1,1,0.26\n", {.gate_m = 0.05});
    EXPECT_NEAR(*found.things.at(target(0)).distance.mean(), -0.04, 1e-12);
    EXPECT_NEAR(*found.things.at(target(1)).distance.mean(), -0.01, 1e-12);
    EXPECT_EQ(found.false_alarms, 0U);
}

TEST_F(score_test, has_the_width_of_the_response_as_gate)
{
    write({{{0.30}}});
    // The pulse of profile 3 is 0.198 m wide.
    EXPECT_EQ(score("frame,group,item,distance_m\n0,1,1,0.497\n", {}).all().detected, 1U);
    const auto beyond = score("frame,group,item,distance_m\n0,1,1,0.499\n", {});
    EXPECT_EQ(beyond.all().detected, 0U);
    EXPECT_EQ(beyond.false_alarms, 1U);
    const recording_reader recording(path);
    EXPECT_EQ(response_width(recording.items()[0], 0.3), 0.198);
}

TEST_F(score_test, ignores_detections_of_targets_that_need_not_be_found)
{
    // Outside the measured distances; a target without an echo is nowhere.
    write({{{0.30, 0.46}}});
    const char *both = "frame,group,item,distance_m\n0,1,1,0.31\n0,1,1,0.44\n0,1,1,0.43\n0,1,1,0.38\n";
    const auto outside = score(both, {.gate_m = 0.04});
    EXPECT_EQ(outside.all().due, 1U);
    EXPECT_EQ(outside.all().detected, 1U);
    EXPECT_EQ(outside.ignored, 2U);
    EXPECT_EQ(outside.false_alarms, 1U);
    const auto weak = score(both, {.gate_m = 0.04, .least_snr_db = 30.1});
    EXPECT_EQ(weak.all().due, 0U);
    EXPECT_EQ(weak.all().probability(), std::nullopt);
    EXPECT_EQ(weak.ignored, 3U);
    EXPECT_EQ(score(both, {.gate_m = 0.04, .least_snr_db = 30.0}).all().due, 1U);
}

TEST_F(score_test, expects_nothing_without_an_echo)
{
    write({{{0.30}}}, [](target_truth &target) {
        target.amplitude = 0.0;
        target.snr_db.reset();
    });
    EXPECT_EQ(score("frame,group,item,distance_m\n", {}).all().due, 0U);
}

TEST_F(score_test, counts_a_second_detection_of_a_target_as_a_false_alarm)
{
    write({{{0.30}}});
    const auto found = score("frame,group,item,distance_m\n0,1,1,0.31\n0,1,1,0.31\n", {});
    EXPECT_EQ(found.all().detected, 1U);
    EXPECT_EQ(found.false_alarms, 1U);
}

TEST_F(score_test, counts_a_body_once_at_any_of_its_points)
{
    write_bodies({0, 3, 3, 3}, {0.0, 0.5, 1.0, 1.5});
    const auto found = score("frame,group,item,distance_m,velocity_m_s\n"
                             "0,1,1,0.343,1.6\n"
                             "0,1,1,0.285,1\n"
                             "0,1,1,0.251,0\n"
                             "0,1,1,0.36,0\n",
                             {.gate_m = 0.01});
    EXPECT_EQ(found.all().due, 2U);
    EXPECT_EQ(found.all().detected, 2U);
    EXPECT_EQ(found.things.size(), 2U);
    // 0.343 is closest to a point, that at 0.34; 0.285 is the further detection of this body.
    EXPECT_NEAR(*found.things.at(body(3)).distance.mean(), 0.003, 1e-12);
    EXPECT_NEAR(*found.things.at(body(3)).velocity.mean(), 0.1, 1e-12);
    EXPECT_NEAR(*found.things.at(target(0)).distance.mean(), 0.001, 1e-12);
    EXPECT_EQ(found.ignored, 1U);
    EXPECT_EQ(found.false_alarms, 1U);
}

TEST_F(score_test, expects_a_body_while_one_of_its_points_is_due)
{
    const auto weak = [](target_truth &each) {
        each.body = 1;
        each.snr_db = each.target == 0 ? 30.0 : 10.0;
    };
    write({{{0.30, 0.40}}}, weak);
    const char *weak_one = "frame,group,item,distance_m\n0,1,1,0.4\n";
    const auto found = score(weak_one, {.gate_m = 0.01, .least_snr_db = 20.0});
    EXPECT_EQ(found.things.at(body(1)).due, 1U);
    EXPECT_EQ(found.things.at(body(1)).detected, 1U);
    const auto none = score(weak_one, {.gate_m = 0.01, .least_snr_db = 31.0});
    EXPECT_EQ(none.things.at(body(1)).due, 0U);
    EXPECT_EQ(none.ignored, 1U);
}

TEST_F(score_test, has_no_things_below_the_least_speed)
{
    write_bodies({0, 0, 2, 2}, {-1.0, 0.4, 0.0, -0.5});
    const char *all = "frame,group,item,distance_m\n0,1,1,0.25\n0,1,1,0.28\n0,1,1,0.31\n0,1,1,0.34\n";
    const auto found = score(all, {.gate_m = 0.01, .least_speed_m_s = 0.5});
    EXPECT_EQ(found.all().due, 2U);
    EXPECT_EQ(found.things.at(target(0)).detected, 1U);
    // A point of a body that is too slow is part of it all the same.
    EXPECT_EQ(found.things.at(body(2)).detected, 1U);
    EXPECT_FALSE(found.things.contains(target(1)));
    EXPECT_EQ(found.ignored, 1U);
    EXPECT_EQ(found.false_alarms, 1U);
    const auto faster = score(all, {.gate_m = 0.01, .least_speed_m_s = 0.51});
    EXPECT_EQ(faster.all().due, 1U);
    EXPECT_EQ(faster.false_alarms, 3U);
}

TEST_F(score_test, compares_many_detections_with_many_targets)
{
    // A list of all pairs would need 64 x 100,000 entries.
    write({{std::vector<double>(64, 0.30)}});
    std::string lines = "frame,group,item,distance_m\n";
    for (int i = 0; i < 100'000; ++i)
    {
        lines += i < 100 ? "0,1,1,0.31\n" : "0,1,1,0.32\n";
    }
    const auto found = score(lines, {.gate_m = 0.015});
    EXPECT_EQ(found.all().detected, 64U);
    EXPECT_NEAR(*found.all().distance.rms(), 0.01, 1e-12);
    EXPECT_EQ(found.false_alarms, 100'000U - 64U);
}

TEST_F(score_test, leaves_out_frames_that_are_not_valid_or_whose_truth_is_unknown)
{
    write({{{0.30}}, {{0.30}, false}});
    const recording_reader recording(path);
    const auto file = directory.write("detections.csv", "frame,group,item,distance_m\n"
                                                        "1,1,1,0.3\n0,1,2,0.15\n");
    const auto scores = score_detections(recording, read_detections(file, recording), {});
    EXPECT_EQ(scores[0].frames, 1U);
    EXPECT_EQ(scores[0].left_out, 1U);
    EXPECT_EQ(scores[0].detections, 0U);
    EXPECT_EQ(scores[0].all().due, 1U);
    EXPECT_EQ(scores[1].frames, 0U);
    EXPECT_EQ(scores[1].left_out, 2U);
    EXPECT_EQ(scores[1].false_alarms, 0U);
}

TEST_F(score_test, needs_a_gate_if_the_width_of_the_response_is_unknown)
{
    write({{{0.30}}});
    const recording_reader recording(path);
    auto item = recording.items()[0];
    item.configuration.subsweeps.at(0).profile = 99;
    EXPECT_EQ(response_width(item, 0.3), std::nullopt);
}

TEST_F(score_test, accepts_blanks_around_names_and_numbers)
{
    write({{{0.30}}});
    const auto found =
        score(" frame , group,\titem, distance_m , velocity_m_s\n 0, 1,\t1 , 0.31 , 0.3 \n  \n", {});
    EXPECT_EQ(found.all().detected, 1U);
    EXPECT_EQ(found.all().velocity.count, 1U);
}

TEST_F(score_test, orders_detections_by_frame_and_item)
{
    write({{{0.30}}, {{0.30}}});
    const recording_reader recording(path);
    const auto file = directory.write("detections.csv", "frame,group,item,distance_m\n"
                                                        "1,1,1,0.1\n0,2,1,0.2\n0,1,2,0.3\n0,1,1,0.4\n");
    const auto found = read_detections(file, recording);
    ASSERT_EQ(found.size(), 4U);
    EXPECT_EQ(found[0].distance_m, 0.4);
    EXPECT_EQ(found[1].distance_m, 0.3);
    EXPECT_EQ(found[2].distance_m, 0.2);
    EXPECT_EQ(found[3].distance_m, 0.1);
    EXPECT_EQ(found[3].frame, 1U);
    EXPECT_EQ(found[2].item, 2U);
}

TEST_F(score_test, refuses_more_detections_than_fit_into_memory)
{
    write({{{0.30}}});
    const recording_reader recording(path);
    const auto file =
        directory.write("detections.csv", "frame,group,item,distance_m\n0,1,1,0.1\n0,1,1,0.2\n0,1,1,0.3\n");
    EXPECT_EQ(read_detections(file, recording, {}, 3).size(), 3U);
    try
    {
        read_detections(file, recording, {}, 2);
        FAIL();
    }
    catch (const detections_error &failure)
    {
        EXPECT_THAT(failure.what(), HasSubstr("line 4: the file has more than 2 detections; raise"));
    }
}

TEST_F(score_test, refuses_more_detections_than_a_frame_can_have)
{
    write({{{0.30}}});
    std::string lines = "frame,group,item,distance_m\n";
    for (size_t i = 0; i < most_detections_in_frame; ++i)
    {
        lines += "0,1,1,0.3\n";
    }
    EXPECT_EQ(score(lines, {}).detections, most_detections_in_frame);
    EXPECT_EQ(
        refusal(lines + "0,1,1,0.3\n"),
        "Frame 0 of group-1-item-1 has more than 100000 detections; raise the threshold of the detector.");
}

TEST_F(score_test, stops_while_it_reads_and_while_it_sorts)
{
    write({{{0.30}}, {{0.30}}});
    const recording_reader recording(path);
    std::string lines = "frame,group,item,distance_m\n";
    constexpr uint64_t count = 20'000;
    for (uint64_t i = 0; i < count; ++i)
    {
        lines += i % 2 == 0 ? "1,1,1,0.3\n" : "0,1,1,0.3\n";
    }
    const auto file = directory.write("detections.csv", lines);
    // Each line is a call; sorting must have more.
    for (const uint64_t last : {uint64_t{1}, count, count + 1})
    {
        uint64_t calls = 0;
        const auto stop = [&] {
            if (++calls == last)
            {
                throw std::runtime_error("stopped");
            }
        };
        EXPECT_THROW(read_detections(file, recording, stop), std::runtime_error);
    }
}

TEST_F(score_test, names_line_and_reason_of_a_wrong_file)
{
    write({{{0.30}}});
    const std::string head = "frame,group,item,distance_m,velocity_m_s\n";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"",
         "line 1: the column \"frame\" is missing; the header is \"\", but must be frame,group,item,dist"},
        {"frame,group,item\n",
         "line 1: the column \"distance_m\" is missing; the header is \"frame,group,item\", but must be"},
        {"frame,group,item,distance_m,item\n", "line 1: the column \"item\" is there more than once"},
        {"Rahmen\xc3\xa4,\xff,\x1b\n", "the header is \"Rahmen\xc3\xa4,\xef\xbf\xbd,\\u001b\""},
        {std::string(4000, 'x') + "\n", "the header is \"" + std::string(80, 'x') + "\"…, but"},
        {head + "0,1,1,0.3\n", "line 2: it has 4 cells, but line 1 has 5"},
        {head + "0,1,1,0.3,0\n0,1,1,x,0\n", "line 3: distance_m is \"x\"; use a number"},
        {head + "0,1,1,nan,0\n", "line 2: distance_m is not finite"},
        {head + "0,1,1,1e999,0\n", "line 2: distance_m is \"1e999\""},
        {head + "0,1,1,0.3,-inf\n", "line 2: velocity_m_s is not finite"},
        {head + "-1,1,1,0.3,0\n", "line 2: frame is \"-1\"; use a whole number"},
        {head + "0.5,1,1,0.3,0\n", "line 2: frame is \"0.5\"; use a whole number"},
        {head + "1,1,1,0.3,0\n", "line 2: frame is 1, but the recording has the frames 0 to 0"},
        {head + "0,1,3,0.3,0\n", "line 2: the recording has no item 3 in group 1"},
        {head + "0,0,1,0.3,0\n", "line 2: the recording has no item 1 in group 0"},
        {head + "0,1,1,\"0.3\",0\n", "distance_m is \"\\\"0.3\\\"\"; use a number, without quotes"},
        {head + "0,1,1,0 .3,0\n", "distance_m is \"0 .3\"; use a number"},
        {head + "0,1,1,0.3,0", "line 2: it has no line end"},
        {head + std::string(200000, '0') + "\n", "has a line of more than 4096 bytes"},
        {std::string("\0\0\n", 3), "is missing; the header is \"\\u0000\\u0000\""}};
    for (const auto &[text, reason] : cases)
    {
        EXPECT_THAT(refusal(text), HasSubstr(reason));
    }
    EXPECT_EQ(run({}).code, exit_code::bad_file);
    std::filesystem::remove(directory / "detections.csv");
    EXPECT_THAT(run({}).err, HasSubstr("detections.csv: No such file"));
    std::filesystem::create_directory(directory / "detections.csv");
    EXPECT_THAT(run({}).err, HasSubstr("not a regular file; write the detections to a file first"));
}

TEST_F(score_test, command_prints_tables_and_json)
{
    write({{{0.30, 0.40}}, {{0.30}}});
    static_cast<void>(directory.write("detections.csv", two_detected));
    const auto text = run({"--gate", "0.05"});
    EXPECT_EQ(text.code, exit_code::success) << text.err;
    EXPECT_THAT(text.out, testing::ContainsRegex("1 +1 +0 +2 +1 +0\\.5000 +10\\.00 mm +10\\.00 mm +200\\.00 "
                                                 "mm/s +200\\.00 mm/s\n"));
    EXPECT_THAT(text.out, testing::ContainsRegex("1 +1 +all +3 +2 +0\\.6667 +29\\.15 mm +25\\.00 mm"));
    EXPECT_THAT(text.out, testing::ContainsRegex("1 +1 +0\\.050 m +2 +0 +3 +0 +1 +0\\.500 +0\\.0250\n"));
    const auto about = json::parse(run({"--gate", "0.05", "--json"}).out);
    EXPECT_EQ(about["due"], 3);
    EXPECT_EQ(about["detected"], 2);
    EXPECT_EQ(about["frames"], 2);
    EXPECT_NEAR(about["false_alarms_per_frame"].get<double>(), 0.5, 1e-12);
    EXPECT_NEAR(about["items"][0]["false_alarms_per_point"].get<double>(), 1.0 / 40.0, 1e-12);
    EXPECT_EQ(about["items"][0]["targets"][1]["target"], 1);
    EXPECT_EQ(about["items"][0]["targets"][1]["due"], 1);
    EXPECT_EQ(about["items"][1]["probability_of_detection"], nullptr);
    EXPECT_EQ(about["items"][1]["gate_m"], 0.05);
    EXPECT_EQ(json::parse(run({"--json"}).out)["items"][1]["gate_m"], 0.198);
}

TEST_F(score_test, command_names_bodies)
{
    write_bodies({0, 2, 2}, {0.0, 0.0, 1.0});
    static_cast<void>(directory.write("detections.csv", "frame,group,item,distance_m\n0,1,1,0.29\n"));
    const auto text = run({"--gate", "0.02"});
    EXPECT_THAT(text.out, testing::ContainsRegex("1 +1 +0 +1 +0 +0\\.0000"));
    EXPECT_THAT(text.out, testing::ContainsRegex("1 +1 +body 2 +1 +1 +1\\.0000 +10\\.00 mm"));
    EXPECT_EQ(text.err, "");
    const auto about = json::parse(run({"--gate", "0.02", "--min-speed", "1", "--json"}).out);
    ASSERT_EQ(about["items"][0]["targets"].size(), 1U);
    EXPECT_EQ(about["items"][0]["targets"][0]["body"], 2);
    EXPECT_FALSE(about["items"][0]["targets"][0].contains("target"));
}

TEST_F(score_test, command_warns_of_scenes_that_may_differ)
{
    for (const std::string reason : {"connected again", "calibrated again"})
    {
        std::filesystem::remove_all(path);
        {
            recording_writer writer(path, test::description_with_truth());
            writer.add(test::frame_with_truth(0));
            writer.begin_segment(
                {.number = 1, .reason = reason, .gap = 1.0, .calibration_temperatures = {20, 21, 22}});
            writer.add(test::frame_with_truth(1));
            writer.finish();
        }
        static_cast<void>(directory.write("detections.csv", two_detected));
        const auto text = run({});
        EXPECT_EQ(text.code, exit_code::success);
        EXPECT_EQ(text.err,
                  reason == "connected again"
                      ? "vantor: warning: The host connected again before frame 1. If the server had "
                        "another scene from then on, the numbers of targets and bodies stand for "
                        "different things; use the rows \"all\".\n"
                      : "");
    }
}

TEST_F(score_test, command_needs_a_truth_and_a_sensible_gate)
{
    test::write_example_recording(path, 1);
    static_cast<void>(directory.write("detections.csv", two_detected));
    const auto refused = run({});
    EXPECT_EQ(refused.code, exit_code::bad_file);
    EXPECT_THAT(refused.err, HasSubstr("has no truth"));
    EXPECT_THAT(refused.err, HasSubstr("--truth FILE"));
    EXPECT_EQ(run({"--gate", "0"}).code, exit_code::usage);
    EXPECT_THAT(run({"--gate", "1000.1"}).err, HasSubstr("is not a number above 0 and at most 1000\n"));
    EXPECT_EQ(run({"--gate", "1000"}).code, exit_code::bad_file);
    EXPECT_EQ(run({"--min-speed", "-1"}).code, exit_code::usage);
    EXPECT_EQ(run({"--min-snr", "x"}).code, exit_code::usage);
}

} // namespace
} // namespace vantor
