/** @file
 * Tests of the truth in recordings: what is written and read.
 */
#include <fstream>

#include <gmock/gmock.h>

#include "example_truth.h"
#include "temporary_directory.h"
#include "vantor/errors.h"
#include "vantor/recording_error.h"
#include "vantor/recording_reader.h"
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
    constexpr uint32_t frames = 3000;
    test::write_recording_with_truth(path, frames);
    const recording_reader recording(path);
    ASSERT_TRUE(recording.has_truth());
    EXPECT_EQ(recording.session().truth, test::example_scene());
    truth_frames all(recording.open_truth());
    for (const uint64_t number : {0U, 1U, 17U, frames - 1})
    {
        const auto &items = all.move_to(number);
        ASSERT_EQ(items.size(), 3U) << number;
        EXPECT_EQ(items[1].truth.tick, number * 20000 + 5);
        EXPECT_EQ(items[2].group, 1U);
        EXPECT_EQ(items[2].truth.targets.at(0).distance_m, -0.1);
    }
    EXPECT_THAT(all.move_to(frames), IsEmpty());
    for (const uint64_t number : {1500U, 0U, 2999U, 1U, 2998U})
    {
        all.seek(number);
        const auto &items = all.move_to(number);
        ASSERT_EQ(items.size(), 3U) << number;
        EXPECT_EQ(items[0].truth.tick, number * 20000);
    }
}

TEST_F(truth_recording, that_is_removed_meanwhile_ends_the_recording)
{
    recording_writer writer(path, test::description_with_truth());
    writer.add(test::frame_with_truth(0));
    std::filesystem::remove(truth);
    EXPECT_THAT([&] { writer.sync(); },
                testing::ThrowsMessage<recording_error>(HasSubstr("truth.jsonl was removed")));
}

TEST_F(truth_recording, that_is_damaged_is_used_as_far_as_possible)
{
    test::write_recording_with_truth(path, 3);
    auto all = lines();
    all[4] = "damaged";
    write(all);
    const recording_reader recording(path);
    truth_frames frames(recording.open_truth());
    EXPECT_EQ(frames.move_to(1).size(), 2U);
    EXPECT_EQ(frames.move_to(2).size(), 3U);
}

} // namespace
} // namespace vantor
