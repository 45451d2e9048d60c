/** @file
 * Tests of the truth in recordings: what is written, read, checked and repaired.
 */
#include <algorithm>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>

#include <gmock/gmock.h>

#include "command_outcome.h"
#include "example_recording.h"
#include "example_truth.h"
#include "export/exporter.h"
#include "hub/playback_source.h"
#include "manual_clock.h"
#include "plot/panels.h"
#include "plot/picture.h"
#include "recording/recording_check.h"
#include "recording/repair.h"
#include "temporary_directory.h"
#include "vantor/errors.h"
#include "vantor/hub.h"
#include "vantor/recording_error.h"
#include "vantor/recording_reader.h"
#include "vantor/recording_sink.h"
#include "vantor/recording_writer.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::read_file;
using testing::HasSubstr;
using testing::IsEmpty;

/** A directory for a recording. */
class truth_recording : public testing::Test
{
protected:
    /** The lines of the truth file. */
    std::vector<std::string> lines() const
    {
        std::vector<std::string> all;
        std::ifstream file(truth);
        for (std::string line; std::getline(file, line);)
        {
            all.push_back(line);
        }
        return all;
    }

    /** Replaces the truth file. */
    void write(const std::vector<std::string> &all) const
    {
        std::ofstream file(truth);
        for (const auto &line : all)
        {
            file << line << "\n";
        }
    }

    /** The first fault of the recording. */
    std::string fault() const
    {
        const auto faults = check_recording(path).faults;
        return faults.empty() ? "" : faults.front();
    }

    test::temporary_directory directory;
    std::filesystem::path path = directory / "out";
    std::filesystem::path truth = path / "truth.jsonl";
};

TEST_F(truth_recording, has_a_line_for_the_scene_and_one_for_each_frame_and_item)
{
    test::write_recording_with_truth(path, 2);
    const auto all = lines();
    ASSERT_EQ(all.size(), 1U + 2 * 3);
    EXPECT_EQ(json::parse(all[0]), test::example_scene());
    const auto fourth = json::parse(R"({"frame": 1, "group": 1, "item": 1, "sensor": 1, "tick": 20000,
        "time_s": 0.0, "temperature": 25, "noise_power": 22500.0, "interference": 0.0,
        "targets": [{"target": 0, "distance_m": 0.3, "velocity_m_s": 0.1, "amplitude": 4743.4,
                     "phase_rad": 1.5, "snr_db": 30.0}]})");
    EXPECT_EQ(json::parse(all[4]), fourth);
    EXPECT_EQ(json::parse(all[6])["group"], 2);
    const auto collection = json::parse(read_file(path / "session.sigmf-collection"))["collection"];
    EXPECT_EQ(collection["vantor:truth"], test::example_scene());
}

TEST_F(truth_recording, is_read_frame_by_frame_from_any_frame_on)
{
    constexpr uint32_t frames = 1000;
    test::write_recording_with_truth(path, frames);
    const recording_reader recording(path);
    ASSERT_TRUE(recording.has_truth());
    EXPECT_EQ(recording.session().truth, test::example_scene());
    truth_frames all(recording);
    for (const uint64_t number : {0U, 1U, 17U, frames - 1})
    {
        const auto &items = all.move_to(number);
        ASSERT_EQ(items.size(), 3U) << number;
        EXPECT_EQ(items[1].truth.tick, number * 20000 + 5);
        EXPECT_EQ(items[2].group, 1U);
        EXPECT_EQ(items[2].truth.targets.at(0).distance_m, -0.1);
    }
    EXPECT_THAT(all.move_to(frames), IsEmpty());
    for (const uint64_t number : {500U, 0U, 999U, 1U, 998U})
    {
        all.seek(number);
        const auto &items = all.move_to(number);
        ASSERT_EQ(items.size(), 3U) << number;
        EXPECT_EQ(items[0].truth.tick, number * 20000);
    }
}

TEST_F(truth_recording, keeps_the_bodies_of_targets)
{
    {
        recording_writer writer(path, test::description_with_truth());
        auto received = test::frame_with_truth(0);
        auto known = *received.truth();
        known.items[0]->targets[0].body = 2;
        received.set_truth(std::make_shared<const frame_truth>(known));
        writer.add(received);
        writer.finish();
    }
    const auto all = lines();
    EXPECT_EQ(json::parse(all.at(1))["targets"][0]["body"], 2);
    EXPECT_FALSE(json::parse(all.at(2))["targets"][0].contains("body"));
    const recording_reader recording(path);
    truth_frames frames(recording);
    const auto &items = frames.move_to(0);
    EXPECT_EQ(items.at(0).truth.targets.at(0).body, 2U);
    EXPECT_EQ(items.at(1).truth.targets.at(0).body, 0U);
    auto wrong = encode_truth(items[0].truth);
    wrong["targets"][0]["body"] = -1;
    EXPECT_THROW(decode_truth(wrong), protocol_error);
}

TEST_F(truth_recording, leaves_out_what_is_not_known)
{
    {
        recording_writer writer(path, test::description_with_truth());
        writer.add(test::example_frame(0));
        auto second = test::frame_with_truth(1);
        auto part = *second.truth();
        part.items[1].reset();
        part.items[2]->targets[0].snr_db.reset();
        second.set_truth(std::make_shared<const frame_truth>(part));
        writer.add(second);
        writer.finish();
    }
    const auto all = lines();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(json::parse(all[1])["item"], 1);
    EXPECT_EQ(json::parse(all[2])["group"], 2);
    EXPECT_EQ(json::parse(all[2])["targets"][0]["snr_db"], nullptr);
    const auto check = check_recording(path);
    EXPECT_THAT(check.faults, IsEmpty());
    EXPECT_EQ(check.truth->lines, 2U);
    EXPECT_EQ(check.truth->frames, 0U);
}

TEST_F(truth_recording, is_shown_by_info)
{
    test::write_recording_with_truth(path, 2);
    EXPECT_THAT(test::run({"info", path.string()}).out, HasSubstr("truth: of 2 frames\n"));
    const auto about = json::parse(test::run({"info", path.string(), "--json"}).out);
    EXPECT_EQ(about["truth"]["frames"], 2);
    EXPECT_EQ(about["truth"]["seed"], 7);
    const auto plain = directory / "plain";
    test::write_example_recording(plain, 1);
    EXPECT_EQ(json::parse(test::run({"info", plain.string(), "--json"}).out)["truth"], nullptr);
    EXPECT_FALSE(std::filesystem::exists(plain / "truth.jsonl"));
    EXPECT_THAT([&] { static_cast<void>(recording_reader(plain).open_truth()); },
                testing::ThrowsMessage<bad_recording>(HasSubstr("--truth FILE")));
}

TEST_F(truth_recording, damage_is_noticed_and_repaired)
{
    test::write_recording_with_truth(path, 3);
    const auto original = lines();
    const auto changed = [&](size_t line, const std::string &member, const json &value) {
        auto all = original;
        auto document = json::parse(all[line]);
        document[member] = value;
        all[line] = document.dump();
        return all;
    };
    auto without_end = original;
    without_end.emplace_back(R"({"frame": 3)");
    auto repeated = original;
    repeated.push_back(original[1]);
    auto surplus = changed(9, "frame", 3);
    surplus.insert(surplus.begin() + 9, original[9]);
    auto other_head = original;
    other_head[0] = "{}";
    auto not_json = original;
    not_json[5] = "\x01";
    auto nothing = original;
    nothing[5] = "[]";
    for (const auto &damaged :
         {without_end, repeated, surplus, other_head, not_json, nothing, changed(2, "tick", 7),
          changed(2, "sensor", 1), changed(2, "item", 3), changed(2, "group", 0), changed(2, "frame", -1),
          changed(2, "targets", json::object()), changed(2, "noise_power", nullptr)})
    {
        write(damaged);
        EXPECT_THAT(fault(), HasSubstr("truth.jsonl ")) << damaged[2];
        const auto repaired = repair_recording(path);
        EXPECT_TRUE(repaired.has_truth);
        EXPECT_FALSE(repaired.truth_lost);
        EXPECT_EQ(fault(), "");
        auto left = lines();
        EXPECT_EQ(json::parse(left[0]), test::example_scene());
        EXPECT_GE(left.size(), original.size() - 1);
        EXPECT_EQ(left.size() - 1 + repaired.truth_lines, damaged.size() - 1) << damaged[2];
        for (size_t i = 1; i < left.size(); ++i)
        {
            EXPECT_THAT(original, testing::Contains(left[i]));
        }
        write(original);
    }
}

TEST_F(truth_recording, a_line_that_is_too_long_is_left_out_alone)
{
    test::write_recording_with_truth(path, 3);
    const auto original = lines();
    auto all = original;
    all[4] = std::string(5000000, ' ');
    write(all);
    EXPECT_THAT(fault(), HasSubstr("has a line of more than 2097152 bytes"));
    const recording_reader recording(path);
    truth_frames frames(recording);
    EXPECT_EQ(frames.move_to(1).size(), 2U);
    EXPECT_EQ(frames.move_to(2).size(), 3U);
    EXPECT_THAT(test::run({"repair", path.string()}).out, HasSubstr("frame tables, 1 line of the truth\n"));
    EXPECT_EQ(fault(), "");
    auto expected = original;
    expected.erase(expected.begin() + 4);
    EXPECT_EQ(lines(), expected);
}

TEST_F(truth_recording, a_first_line_that_is_missing_or_too_long_is_written_again)
{
    test::write_recording_with_truth(path, 3);
    const auto original = lines();
    auto missing = original;
    missing.erase(missing.begin());
    auto long_one = original;
    long_one[0] = std::string(5000000, ' ');
    for (const auto &damaged : {missing, long_one})
    {
        write(damaged);
        EXPECT_THAT(fault(), HasSubstr("has another first line"));
        EXPECT_EQ(repair_recording(path).truth_lines, 0U);
        EXPECT_EQ(lines(), original);
    }
}

TEST_F(truth_recording, lines_in_a_wrong_place_are_put_into_order)
{
    constexpr uint32_t frames = 60;
    test::write_recording_with_truth(path, frames);
    const auto original = lines();
    auto all = original;
    // Two lines of a late frame, then one of an early frame, each of which would hide all others.
    std::rotate(all.begin() + 7, all.begin() + 150, all.begin() + 152);
    std::rotate(all.begin() + 20, all.begin() + 21, all.begin() + 100);
    write(all);
    EXPECT_THAT(fault(), HasSubstr("is listed after a later one"));
    EXPECT_EQ(check_recording(path).truth->frames, frames);
    EXPECT_EQ(repair_recording(path).truth_lines, 0U);
    EXPECT_EQ(lines(), original);
}

TEST_F(truth_recording, lines_that_are_not_of_their_frame_are_used_by_nobody)
{
    constexpr uint32_t frames = 20;
    test::write_recording_with_truth(path, frames);
    auto all = lines();
    const auto changed = [&](const std::string &member, const json &value) {
        auto document = json::parse(all[4]);
        document[member] = value;
        return document.dump();
    };
    auto far_target = json::parse(all[4])["targets"][0];
    far_target["distance_m"] = 0.25;
    auto too_many = json::array();
    for (int i = 0; i < 65; ++i)
    {
        far_target["target"] = i;
        too_many.push_back(far_target);
    }
    far_target["target"] = 0;
    const auto twice = json::array({far_target, far_target});
    far_target["target"] = 65536;
    const std::vector<std::string> wrong{changed("frame", 1000000000000),
                                         changed("frame", 19),
                                         changed("sensor", 2),
                                         changed("tick", 7),
                                         changed("item", 9),
                                         changed("targets", too_many),
                                         changed("targets", twice),
                                         changed("targets", json::array({far_target})),
                                         all[1],
                                         "",
                                         "{"};
    const auto original = all;
    all.insert(all.begin() + 4, wrong.begin(), wrong.end());
    // A doubled line.
    all.insert(all.begin() + 25, all[24]);
    write(all);
    recording_reader recording(path);
    truth_frames reader(recording);
    for (uint32_t number = 0; number < frames; ++number)
    {
        ASSERT_EQ(reader.move_to(number).size(), 3U) << number;
    }
    export_truth(recording, directory / "files");
    const auto exported = read_file(directory / "files/group-1-item-1.truth.csv");
    EXPECT_EQ(std::count(exported.begin(), exported.end(), '\n'), 1 + frames);
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    ASSERT_EQ(analysis.truth.size(), 1U);
    EXPECT_NEAR(analysis.truth[0].mean, 0.3, 1e-12);
    EXPECT_EQ(check_recording(path).truth->frames, frames);
    EXPECT_EQ(repair_recording(path).truth_lines, wrong.size() + 1);
    EXPECT_EQ(lines(), original);
}

TEST_F(truth_recording, faults_describe_the_line)
{
    test::write_recording_with_truth(path, 2);
    const auto original = lines();
    const auto described = [&](const std::string &line) {
        auto all = original;
        all[1] = line;
        write(all);
        return fault();
    };
    const auto start = std::to_string(original[0].size() + 1);
    const auto begin = "truth.jsonl: the line at byte " + start + " does not describe the truth of a frame: ";
    EXPECT_THAT(described("{}"), HasSubstr(begin + "\"sensor\" is missing."));
    EXPECT_THAT(described("[]"), HasSubstr(begin + "\"sensor\" is missing."));
    EXPECT_THAT(described(R"({"sensor":1,"tick":-1})"),
                HasSubstr(begin + "\"tick\" is not a whole number from 0 to 4294967295."));
    EXPECT_THAT(described(R"({"sensor":1,"tick":1,"time_s":"1"})"),
                HasSubstr(begin + "\"time_s\" is not a number."));
    EXPECT_THAT(
        described("{\"sensor\":\"\xff\"}"),
        HasSubstr(begin +
                  "The line is not valid JSON at line 1, column 12: invalid or unexpected character."));
}

TEST_F(truth_recording, is_found_again_and_again_behind_many_damaged_lines)
{
    constexpr uint32_t frames = 300;
    test::write_recording_with_truth(path, frames);
    auto all = lines();
    std::ofstream file(truth);
    for (size_t i = 0; i < all.size(); ++i)
    {
        file << all[i] << "\n" << (i == 3 ? std::string(3000000, '\n') : "");
    }
    file.close();
    const recording_reader recording(path);
    uint64_t asked = 0;
    truth_frames found(recording, [&] { ++asked; });
    found.seek(1);
    EXPECT_EQ(found.move_to(1).size(), 3U);
    const auto first = asked;
    EXPECT_GT(first, 1000000U);
    asked = 0;
    for (uint64_t number = 1; number < frames; ++number)
    {
        found.seek(number);
        ASSERT_EQ(found.move_to(number).size(), 3U) << number;
    }
    EXPECT_LT(asked, 1000000U);
}

TEST_F(truth_recording, is_not_read_further_when_that_is_no_longer_wanted)
{
    test::write_recording_with_truth(path, 2);
    std::ofstream(truth, std::ios::app) << std::string(1000, '\n') << std::string(200000, ' ');
    recording_reader recording(path);
    class stopped : public std::exception
    {
    };
    for (const int most : {0, 1, 10, 500, 1003})
    {
        int left = most;
        const auto stop = [&left] {
            if (left-- == 0)
            {
                throw stopped();
            }
        };
        truth_frames frames(recording, stop);
        EXPECT_THROW(frames.move_to(5), stopped);
        left = most;
        EXPECT_THROW(check_recording(path, {}, stop), stopped);
        left = most;
        EXPECT_THROW(export_truth(recording, directory / "files", {.row = stop}), stopped);
    }
    EXPECT_THROW(analyse_item(recording, 0, std::nullopt, [] { return true; }), drawing_stopped);
}

TEST_F(truth_recording, is_played_from_any_frame_although_a_line_is_too_long)
{
    constexpr uint32_t frames = 40;
    test::write_recording_with_truth(path, frames);
    auto all = lines();
    all[1 + 3 * 17] = std::string(5000000, 'x');
    write(all);
    recording_reader recording(path);
    test::manual_clock clock;
    test::manual_loop loop(clock);
    playback_source source(recording, {.speed = std::numeric_limits<double>::infinity()}, loop);
    for (const uint64_t number : {17U, 30U, 2U, 17U})
    {
        source.seek(number);
        const auto played = source.next();
        EXPECT_EQ(played.items()[1].tick, number * 20000 + 5);
        EXPECT_EQ(played.truth()->items.at(0).has_value(), number != 17) << number;
        ASSERT_TRUE(played.truth()->items.at(1)) << number;
        EXPECT_EQ(played.truth()->items.at(1)->tick, number * 20000 + 5);
    }
}

TEST_F(truth_recording, that_is_lost_does_not_prevent_a_repair)
{
    test::write_recording_with_truth(path, 2);
    const auto head = lines()[0];
    const auto whole = directory / "whole";
    std::filesystem::copy(path, whole);
    const auto lose = [&](const std::optional<std::string> &left) {
        std::filesystem::remove_all(path);
        std::filesystem::copy(whole, path);
        std::filesystem::remove(truth);
        if (left)
        {
            std::ofstream(truth) << *left;
        }
    };
    const std::vector<std::optional<std::string>> rests{std::nullopt, "", head.substr(0, 10)};
    for (const auto &left : rests)
    {
        lose(left);
        EXPECT_THAT(fault(), HasSubstr("truth.jsonl"));
        EXPECT_EQ(json::parse(test::run({"info", path.string(), "--json"}).out)["repair_obstacle"], nullptr);
        const auto samples = path / "group-2-item-1.sigmf-data";
        std::filesystem::resize_file(samples, std::filesystem::file_size(samples) - 1);
        const auto outcome = test::run({"repair", path.string(), "--json"});
        EXPECT_EQ(json::parse(outcome.out)["truth_lost"], true) << outcome.err;
        EXPECT_EQ(json::parse(outcome.out)["frames"], 1);
        EXPECT_EQ(fault(), "");
        EXPECT_FALSE(std::filesystem::exists(truth));
        EXPECT_FALSE(recording_reader(path).has_truth());
        EXPECT_THAT(read_file(path / "group-1-item-1.sigmf-meta"), testing::Not(HasSubstr("vantor:truth")));
        lose(left);
        EXPECT_THAT(test::run({"repair", path.string()}).out,
                    HasSubstr("; the truth is lost: truth.jsonl was"));
    }
    lose(std::nullopt);
    std::filesystem::create_directory(truth);
    EXPECT_THAT([&] { repair_recording(path); },
                testing::ThrowsMessage<damaged_recording>(HasSubstr("truth.jsonl")));
}

TEST_F(truth_recording, that_is_shortened_meanwhile_ends_the_recording)
{
    recording_writer writer(path, test::description_with_truth());
    writer.add(test::frame_with_truth(0));
    std::filesystem::resize_file(truth, std::filesystem::file_size(truth) - 1);
    const auto is_noticed = testing::ThrowsMessage<recording_error>(HasSubstr("truth.jsonl was shortened"));
    EXPECT_THAT([&] { writer.add(test::frame_with_truth(1)); }, is_noticed);
    EXPECT_THAT([&] { writer.finish(); }, is_noticed);
}

TEST_F(truth_recording, of_a_killed_program_is_cut_to_its_frames)
{
    {
        recording_writer writer(path, test::description_with_truth());
        writer.add(test::frame_with_truth(0));
        writer.add(test::frame_with_truth(1));
    }
    const auto samples = path / "group-2-item-1.sigmf-data";
    std::filesystem::resize_file(samples, std::filesystem::file_size(samples) - 1);
    std::ofstream(truth, std::ios::app) << R"({"frame": 2, "gro)";
    EXPECT_EQ(fault(), "");
    repair_recording(path);
    EXPECT_EQ(lines().size(), 1U + 3);
    const auto check = check_recording(path);
    EXPECT_THAT(check.faults, IsEmpty());
    EXPECT_EQ(check.frames, 1U);
    EXPECT_EQ(check.truth->frames, 1U);
}

TEST_F(truth_recording, that_is_removed_meanwhile_ends_the_recording)
{
    recording_writer writer(path, test::description_with_truth());
    writer.add(test::frame_with_truth(0));
    std::filesystem::remove(truth);
    EXPECT_THAT([&] { writer.sync(); },
                testing::ThrowsMessage<recording_error>(HasSubstr("truth.jsonl was removed")));
}

TEST_F(truth_recording, contradiction_between_documents_is_damage)
{
    test::write_recording_with_truth(path, 1);
    const auto collection = path / "session.sigmf-collection";
    auto document = json::parse(read_file(collection));
    document["collection"]["vantor:truth"]["seed"] = 8;
    std::ofstream(collection) << document.dump();
    EXPECT_THAT(fault(), HasSubstr("vantor:truth differs from its copy"));
    document["collection"]["vantor:truth"] = 8;
    std::ofstream(collection) << document.dump();
    EXPECT_THAT(fault(), HasSubstr("vantor:truth is not an object"));
    repair_recording(path);
    EXPECT_EQ(fault(), "");
}

TEST_F(truth_recording, is_played_with_the_frames)
{
    constexpr uint32_t frames = 40;
    test::write_recording_with_truth(path, frames);
    recording_reader recording(path);
    test::manual_clock clock;
    test::manual_loop loop(clock);
    playback_source source(recording, {.speed = std::numeric_limits<double>::infinity()}, loop);
    const auto copy = directory / "copy";
    recording_writer writer(copy, recording.session());
    recording_sink recorder(writer, recording.session().metadata, default_queue_size, loop);
    hub stream(source, {&recorder}, loop);
    stream.run({});
    EXPECT_FALSE(recorder.close());
    writer.finish();
    EXPECT_EQ(read_file(copy / "truth.jsonl"), read_file(truth));
    source.seek(17);
    EXPECT_EQ(source.next().truth()->items.at(1)->tick, 17 * 20000U + 5);
    playback_source endless(recording, {.speed = std::numeric_limits<double>::infinity(), .endless = true},
                            loop);
    for (uint32_t i = 0; i < frames; ++i)
    {
        static_cast<void>(endless.next());
    }
    const auto again = endless.next();
    EXPECT_EQ(again.items()[1].tick, frames * 20000U + 5);
    EXPECT_EQ(again.truth()->items.at(1)->tick, again.items()[1].tick);
    EXPECT_EQ(again.truth()->items.at(1)->targets.at(0).distance_m, 0.2);
}

TEST_F(truth_recording, is_drawn_where_an_item_measures)
{
    test::write_recording_with_truth(path, 500);
    recording_reader recording(path);
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    ASSERT_EQ(analysis.truth.size(), 1U);
    EXPECT_NEAR(analysis.truth[0].mean, 0.3, 1e-12);
    EXPECT_GT(analysis.truth[0].points.size(), 200U);
    EXPECT_LE(analysis.truth[0].points.size(), 401U);
    EXPECT_NEAR(analysis.truth[0].points.back().time, 0.02 * 498, 0.1);
    // The last item measures from -0.1025 m to -0.03 m.
    EXPECT_EQ(analyse_item(recording, 2, std::nullopt).truth.size(), 1U);
    const page sheet(1, 4);
    const panel_row place{.sheet = sheet,
                          .row = 0,
                          .item = recording.items()[0],
                          .analysis = analysis,
                          .base = (directory / "base").string()};
    const auto commands = draw_panels(place);
    EXPECT_THAT(commands, HasSubstr("from 0.300000, graph 0 to 0.300000, graph 1 nohead dt 2"));
    EXPECT_THAT(commands, HasSubstr("base.truth' using 1:2:(0) with lines dt 2"));
    EXPECT_THAT(commands, HasSubstr("truth (dashed)"));
    testing::internal::CaptureStderr();
    EXPECT_THAT(draw_recording(recording, {.output = directory / "p.png"}).warnings, IsEmpty());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(truth_recording, is_exported_as_text)
{
    {
        recording_writer writer(path, test::description_with_truth());
        auto first = test::frame_with_truth(0);
        auto known = *first.truth();
        known.items[0]->targets.clear();
        known.items[1]->targets[0].snr_db.reset();
        known.items[1]->targets[0].body = 7;
        first.set_truth(std::make_shared<const frame_truth>(known));
        writer.add(first);
        writer.finish();
    }
    const auto output = directory / "files";
    const recording_reader recording(path);
    EXPECT_EQ(export_truth(recording, output).size(), 3U);
    const std::string head = "frame,tick,time_s,temperature,noise_power,interference,target,distance_m,"
                             "velocity_m_s,amplitude,phase_rad,snr_db,body\n";
    EXPECT_EQ(read_file(output / "group-1-item-1.truth.csv"), head + "0,0,0,25,22500,0,,,,,,,\n");
    EXPECT_EQ(read_file(output / "group-1-item-2.truth.csv"),
              head + "0,5,0,25,22500,0,0,0.2,0.1,4743.4,1.5,,7\n");
    EXPECT_EQ(read_file(output / "group-2-item-1.truth.csv"),
              head + "0,9,0,25,22500,0,0,-0.1,0.1,4743.4,1.5,30,0\n");
    EXPECT_THAT(test::run({"export", path.string(), "--format", "truth"}).out,
                HasSubstr("export/group-1-item-1.truth.csv\n"));
    EXPECT_THROW(static_cast<void>(export_truth(recording, output)), recording_error);
}

TEST_F(truth_recording, that_is_damaged_is_used_as_far_as_possible)
{
    test::write_recording_with_truth(path, 3);
    auto all = lines();
    all[4] = "damaged";
    write(all);
    const recording_reader recording(path);
    truth_frames frames(recording);
    EXPECT_EQ(frames.move_to(1).size(), 2U);
    EXPECT_EQ(frames.move_to(2).size(), 3U);
}

} // namespace
} // namespace vantor
